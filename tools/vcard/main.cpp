// quarvel-vcard: serves one simulated card to the virtual PC/SC reader vpcd.

#include "tools/vcard/Families.h"
#include "tools/vcard/VpcdClient.h"

#include <getopt.h>

#include <cstdio>
#include <exception>
#include <optional>
#include <string>

namespace {

constexpr std::chrono::seconds kConnectPatience{10};
constexpr int kExitUsage = 2;

volatile std::sig_atomic_t stopRequested = 0;

extern "C" void requestStop(int)
{
    stopRequested = 1;
}

struct Settings {
    std::string host = "127.0.0.1";
    std::string port = "35963";
    bool verbose = false;
    bool help = false;
    const vcard::Family* family = nullptr;
    vcard::CardOptions card;
};

void printHelp(std::FILE* out)
{
    std::fputs("Usage: quarvel-vcard CARD [--host H] [--port N] [--pin PIN] [--key 1024|2048] [--keys LIST]\n"
               "       [--verbose]\n"
               "Puts a simulated card into the virtual PC/SC reader (vpcd) until the reader closes or "
               "SIGTERM comes.\n"
               "\nCards:\n",
               out);
    for (const vcard::Family* family = vcard::familiesBegin(); family != vcard::familiesEnd(); ++family)
        std::fprintf(out, "  %-12s %s\n", family->name, family->about);
    std::fputs(
        "\nOptions:\n"
        "  --host H     where vpcd listens (127.0.0.1)\n"
        "  --port N     its TCP port (35963)\n"
        "  --pin PIN    the card holder's PIN (123456)\n"
        "  --key BITS   size of the card's RSA keys, 1024 or 2048 (each key its usual size)\n"
        "  --keys LIST  keys of a PIV card: 9A, 9C, 9D, 9E, each = rsa1024, rsa2048, rsa3072, rsa4096,\n"
        "               p256 or p384, with commas between (9A=rsa2048,9C=rsa1024,9D=rsa2048,9E=p256)\n"
        "  --verbose    print every command and answer, PINs included\n"
        "  --help       print this\n",
        out);
}

/// Nothing when the command line is wrong; the reason was printed.
std::optional<Settings> parse(int argc, char** argv)
{
    static const option options[] = {
        {"host", required_argument, nullptr, 'H'}, {"port", required_argument, nullptr, 'p'},
        {"pin", required_argument, nullptr, 'P'},  {"key", required_argument, nullptr, 'k'},
        {"keys", required_argument, nullptr, 'K'}, {"verbose", no_argument, nullptr, 'v'},
        {"help", no_argument, nullptr, 'h'},       {nullptr, 0, nullptr, 0},
    };
    Settings settings;
    int choice = 0;
    while ((choice = getopt_long(argc, argv, "hv", options, nullptr)) != -1) {
        switch (choice) {
        case 'H':
            settings.host = optarg;
            break;
        case 'p':
            settings.port = optarg;
            break;
        case 'P':
            settings.card.pin = optarg;
            break;
        case 'k':
            settings.card.rsaBits = std::string(optarg) == "1024"   ? 1024
                                    : std::string(optarg) == "2048" ? 2048
                                                                    : -1;
            break;
        case 'K':
            settings.card.keys = optarg;
            break;
        case 'v':
            settings.verbose = true;
            break;
        case 'h':
            settings.help = true;
            return settings;
        default:
            return std::nullopt;
        }
    }
    const std::string name = optind + 1 == argc ? argv[optind] : "";
    settings.family = vcard::findFamily(name);
    const char* const mistake = settings.family == nullptr                     ? "name one of the cards"
                                : settings.card.rsaBits < 0                    ? "--key takes 1024 or 2048"
                                : !settings.card.keys.empty() && name != "piv" ? "--keys is for piv"
                                                                               : nullptr;
    if (mistake == nullptr)
        return settings;
    std::fprintf(stderr, "quarvel-vcard: %s\n", mistake);
    return std::nullopt;
}

/// The signals come in only while the client waits, so that none is missed between a test and a wait.
sigset_t catchSignals()
{
    struct sigaction action = {};
    action.sa_handler = requestStop;
    sigset_t caught;
    sigset_t before;
    sigemptyset(&caught);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        sigaddset(&caught, signal);
        sigaction(signal, &action, nullptr);
    }
    sigprocmask(SIG_BLOCK, &caught, &before);
    return before;
}

void run(const Settings& settings)
{
    const sigset_t unblocked = catchSignals();
    const std::unique_ptr<vcard::Card> card = settings.family->make(settings.card);
    vcard::VpcdClient client(stopRequested, unblocked);
    client.connect(settings.host, settings.port, kConnectPatience);
    std::printf("quarvel-vcard: %s card in the reader at %s:%s\n", settings.family->name,
                settings.host.c_str(), settings.port.c_str());
    std::fflush(stdout);
    client.serve(*card, settings.verbose);
}

} // namespace

int main(int argc, char** argv)
{
    try {
        const std::optional<Settings> settings = parse(argc, argv);
        if (!settings || settings->help) {
            printHelp(settings ? stdout : stderr);
            return settings ? 0 : kExitUsage;
        }
        run(*settings);
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "quarvel-vcard: %s\n", failure.what());
        return 1;
    }
}
