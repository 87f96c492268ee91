// Runs a fuzz target, where there is no libFuzzer, over the inputs of a corpus or those of them that are
// named:
//   TARGET CORPUS [NAME...]
#include "fuzz/Corpus.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size);

int main(int argc, char** argv)
{
    const auto inputs = fuzz::readCorpus(argc > 1 ? argv[1] : "");
    int replayed = 0;
    for (const auto& [name, bytes] : inputs) {
        if (argc > 2 && std::find(argv + 2, argv + argc, name) == argv + argc)
            continue;
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        ++replayed;
    }
    return replayed == (argc > 2 ? argc - 2 : static_cast<int>(inputs.size())) && replayed > 0 ? 0 : 1;
}
