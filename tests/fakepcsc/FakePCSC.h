/// A stand-in for the PC/SC service: the SCard functions that the library calls, linked into the test
/// program, over readers and cards that the test handles. Everything is safe to use from several threads.
#pragma once

#include "tools/vcard/Card.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace fakepcsc {

using vcard::Bytes;

/// Takes everything back to one PC/SC service without readers, contexts, records and failures.
void reset();

/// Readers in the order that SCardListReaders gives; the index is the reader's number below.
int addReader(const std::string& name);
/// The reader is unplugged: its state becomes UNKNOWN. A service may forget it: it knows it in calls that
/// wait already, and refuses its name in new ones.
void detachReader(int reader, bool isForgotten = false);
void attachReader(int reader);

/// Without the service no context can be had; those of before stay lost when it starts again.
void stopService();
void startService();

/// Puts a card in; replaces the card that is there. Open handles of the old card see
/// SCARD_W_REMOVED_CARD.
void insertCard(int reader, std::shared_ptr<vcard::Card> card);
void removeCard(int reader);
/// The card is reset, not by the library, which ends a transaction too: open handles see SCARD_W_RESET_CARD
/// until they reconnect.
void resetCard(int reader);
/// The same, and the card is off until somebody resets it or connects to it anew.
void unpowerCard(int reader);
/// Such a reset a moment ago, of which handles hear nothing: no command goes to the card until somebody
/// connects to it.
void loseProtocol(int reader);

/// One call of the library; `command` is that of SCardTransmit.
struct Call {
    std::string name;
    long result;
    Bytes command;
};
/// All calls since the last clearCalls().
std::vector<Call> calls();
void clearCalls();
/// The commands among them, as upper-case hexadecimal text.
std::vector<std::string> sentAPDUs();
/// How often the function was called since the last clearCalls().
int callCount(const std::string& name);

/// Makes the call of that function number `nth` from now (1 is the next) and the `times - 1` calls after it
/// return this result; calls of any function when the name is empty.
void failCall(const std::string& name, long result, int nth = 1, int times = 1);
/// Makes the answer of SCardTransmit number `nth` from now come out as these bytes, the card not being asked.
void replaceAnswer(const Bytes& answer, int nth = 1);

/// Runs the action once, right before the call number `nth` from now of that function, of any function when
/// the name is empty.
void beforeCall(const std::string& name, int nth, std::function<void()> action);
/// What was to happen at later calls does not.
void forgetPlans();

/// Blocks until that many threads wait inside SCardGetStatusChange with a timeout; none of them goes on
/// before the action is done.
void awaitBlockedWaits(
    int count, const std::function<void()>& action = [] {});
/// What is open now; all 0 when nothing leaked.
struct Open {
    int contexts, handles, transactions;
};
Open open();

} // namespace fakepcsc
