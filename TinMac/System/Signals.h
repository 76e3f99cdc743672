#pragma once

#include <cstdint>
#include <functional>

namespace tinmac {

/// A program's way with a signal: a function, or the Mac's SIG_DFL (0) or SIG_IGN (1).
using SignalAction = void (*)(int);

/// signal(), with the Mac's numbers. Gives the former action; SIG_ERR (-1) with the error set for a
/// number that cannot be caught.
SignalAction setSignalAction(std::int32_t macNumber, SignalAction action);

using ListenerID = std::uint64_t;
/// Calls `heard` on a thread of its own after the signal was sent to the process, also when the
/// program ignores it; not for a signal that a thread raised for itself. Signals in quick
/// succession may come as one. `heard` must not call these functions.
ListenerID listenToSignal(std::int32_t macNumber, std::function<void()> heard);
/// `heard` is not running and will not run any more.
void stopListening(ListenerID listener);

}  // namespace tinmac
