#pragma once

#include <framewell/base/config.h>

#include <functional>
#include <list>
#include <map>
#include <string>

/// @file
/// Room for a host's own process-wide odds and ends.

namespace mox {

/// Values by name, things to call and a text, which live as long as the library is loaded.
/// Thread-safety: one thread at a time.
struct Statics {
    std::map<std::string, std::string> values;  ///< by any names
    std::list<std::function<void()>> actions;   ///< never called by the library
    std::string text;                           ///< any
};

/// Made when the library is loaded, destroyed when it is unloaded. The library itself never reads
/// or writes it.
extern FRAMEWELL_API Statics g_statics;

}  // namespace mox
