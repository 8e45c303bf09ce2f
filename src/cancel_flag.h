#pragma once

#include <atomic>

namespace ff {

/// Whether a request is cancelled; without a flag it cannot be.
inline bool is_set(const std::atomic<bool>* flag) {
    return flag != nullptr && flag->load();
}

/// The cancellation flags that decoders lend to requests which bring none of their own.
///
/// A request record keeps the pointer that a decoder wrote into it, and hosts use records again,
/// with other decoders and after the first one is gone. So the memory of a flag is never freed, and
/// any pointer can be asked whether it is such a flag. A flag that was given back is lent again.
/// Thread-safety: safe.
std::atomic<bool>* take_cancel_flag();
void give_back_cancel_flag(std::atomic<bool>* flag);
bool is_cancel_flag(const std::atomic<bool>* flag);

/// Returns the flag that a request is to be cancelled by: the one in `slot` if the host put it
/// there or if it is `own`, else `own`, which is then written into `slot`. Several threads may
/// hand in one record at the same time.
std::atomic<bool>* claim_abort_flag(std::atomic<bool>*& slot, std::atomic<bool>* own);

}  // namespace ff
