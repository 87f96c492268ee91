#include "tools/vcard/VpcdClient.h"

#include "tools/vcard/Bytes.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <utility>

namespace vcard {

namespace {

/// For the user, and for scripts that wait for it.
void announce(const char* event)
{
    std::printf("quarvel-vcard: %s\n", event);
    std::fflush(stdout);
}

enum Control : unsigned char { PowerOff = 0, PowerOn = 1, Reset = 2, GetAtr = 4 };

constexpr timespec kBetweenTries = {0, 100L * 1000 * 1000};

std::runtime_error noReader(const std::string& host, const std::string& port, int reason)
{
    return std::runtime_error("no virtual reader at " + host + ":" + port + " (" + std::strerror(reason) +
                              "); is pcscd running with the vpcd driver?");
}

struct FreeAddresses {
    void operator()(addrinfo* addresses) const { freeaddrinfo(addresses); }
};

} // namespace

VpcdClient::VpcdClient(const volatile std::sig_atomic_t& stop, const sigset_t& unblocked)
    : m_stop(stop), m_unblocked(unblocked)
{
}

VpcdClient::~VpcdClient()
{
    if (m_socket >= 0)
        ::close(m_socket);
}

void VpcdClient::connect(const std::string& host, const std::string& port, std::chrono::seconds patience)
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!tryConnect(host, port)) {
        const int reason = errno;
        if (m_stop != 0 || std::chrono::steady_clock::now() >= deadline)
            throw noReader(host, port, reason);
        ppoll(nullptr, 0, &kBetweenTries, &m_unblocked);
    }
}

bool VpcdClient::tryConnect(const std::string& host, const std::string& port)
{
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (const int failure = getaddrinfo(host.c_str(), port.c_str(), &hints, &found); failure != 0)
        throw std::runtime_error(host + ":" + port + ": " + gai_strerror(failure));
    const std::unique_ptr<addrinfo, FreeAddresses> addresses(found);
    for (const addrinfo* address = found; address != nullptr; address = address->ai_next) {
        const int candidate =
            socket(address->ai_family, address->ai_socktype | SOCK_CLOEXEC, address->ai_protocol);
        if (candidate >= 0 && ::connect(candidate, address->ai_addr, address->ai_addrlen) == 0) {
            const int yes = 1;
            setsockopt(candidate, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
            m_socket = candidate;
            return true;
        }
        const int reason = errno;
        if (candidate >= 0)
            ::close(candidate);
        errno = reason;
    }
    return false;
}

void VpcdClient::serve(Card& card, bool verbose)
{
    const auto show = [verbose](const char* what, const std::string& text) {
        if (verbose) {
            std::printf("%s %s\n", what, text.c_str());
            std::fflush(stdout);
        }
    };
    bool powered = false;
    bool announced = false;
    unsigned char header[2] = {};
    while (readExactly(header, sizeof header)) {
        Bytes body(static_cast<size_t>(header[0]) << 8 | header[1]);
        if (!readExactly(body.data(), body.size()))
            return;
        if (body.size() != 1) {
            show(">", toHex(body));
            const Bytes response = card.transmit(body);
            show("<", toHex(response));
            if (!send(response))
                return;
        } else if (body[0] == GetAtr) {
            if (!send(card.atr()))
                return;
            if (powered && !std::exchange(announced, true))
                announce("the reader has powered the card");
        } else if (body[0] == PowerOff || body[0] == PowerOn || body[0] == Reset) {
            show("-", body[0] == PowerOff ? "power off" : body[0] == PowerOn ? "power on" : "reset");
            card.reset();
            powered = powered || body[0] == PowerOn;
        }
    }
}

bool VpcdClient::waitFor(short events)
{
    while (m_stop == 0) {
        pollfd watched = {m_socket, events, 0};
        const int ready = ppoll(&watched, 1, nullptr, &m_unblocked);
        if (ready > 0 || (ready < 0 && errno != EINTR))
            return ready > 0;
    }
    return false;
}

bool VpcdClient::readExactly(unsigned char* buffer, size_t length)
{
    while (length > 0) {
        if (!waitFor(POLLIN))
            return false;
        const ssize_t got = recv(m_socket, buffer, length, 0);
        if (got <= 0)
            return false;
        // vpcd writes length and body apart, and the system keeps the body back for an acknowledgement, which
        // this one would delay by 40 ms. The option lasts for what is there now.
        const int yes = 1;
        setsockopt(m_socket, IPPROTO_TCP, TCP_QUICKACK, &yes, sizeof yes);
        buffer += got;
        length -= static_cast<size_t>(got);
    }
    return true;
}

bool VpcdClient::send(const Bytes& body)
{
    const Bytes message = join({twoBytes(static_cast<unsigned>(body.size())), body});
    size_t sent = 0;
    while (sent < message.size()) {
        const ssize_t count =
            waitFor(POLLOUT) ? ::send(m_socket, message.data() + sent, message.size() - sent, MSG_NOSIGNAL)
                             : -1;
        if (count <= 0)
            return false;
        sent += static_cast<size_t>(count);
    }
    return true;
}

} // namespace vcard
