/// The inputs that the fuzzers start from: a text file each, a line for an input, its name and its bytes in
/// hexadecimal.
#pragma once

#include "tools/vcard/Bytes.h"

#include <fstream>
#include <map>
#include <string>

namespace fuzz {

/// The inputs by their names; none where the file cannot be read.
inline std::map<std::string, vcard::Bytes> readCorpus(const std::string& path)
{
    std::map<std::string, vcard::Bytes> inputs;
    std::ifstream file(path);
    for (std::string name, bytes; file >> name >> bytes;)
        inputs[name] = vcard::fromHex(bytes);
    return inputs;
}

} // namespace fuzz
