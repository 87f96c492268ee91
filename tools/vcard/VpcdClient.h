#pragma once

#include "tools/vcard/Card.h"

#include <chrono>
#include <csignal>
#include <string>

namespace vcard {

/// Puts a card into the virtual reader of vpcd, which listens on a TCP port. A message is its length in two
/// bytes, big endian, and its body; a body of one byte is about the reader's power or asks for the answer to
/// reset, any other is a command APDU.
class VpcdClient {
public:
    /// Waits only while the signals of `unblocked` can come in; they set `stop`.
    VpcdClient(const volatile std::sig_atomic_t& stop, const sigset_t& unblocked);
    VpcdClient(const VpcdClient&) = delete;
    VpcdClient& operator=(const VpcdClient&) = delete;
    ~VpcdClient();

    /// Tries until the reader listens or the patience is over. Throws std::runtime_error then.
    void connect(const std::string& host, const std::string& port, std::chrono::seconds patience);
    /// Serves until the reader hangs up or a signal stops it. Says on the standard output when the reader has
    /// powered the card and asked for its answer to reset for the first time; commands and answers go there
    /// too if asked.
    void serve(Card& card, bool verbose);

private:
    bool tryConnect(const std::string& host, const std::string& port);
    /// False when there is nothing more to read.
    bool readExactly(unsigned char* buffer, size_t length);
    bool send(const Bytes& body);
    /// False at a signal.
    bool waitFor(short events);

    const volatile std::sig_atomic_t& m_stop;
    sigset_t m_unblocked;
    int m_socket = -1;
};

} // namespace vcard
