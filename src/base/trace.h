#pragma once

#include <framewell/base/tracer.h>

/// Draws the rest of the enclosing scope as one call: FW_TRACE("seek", nullptr). The line is that
/// of the macro, the source path the file's `kLogSource` (see log.h). `note` may be null.
#define FW_TRACE(function, note)                            \
    const ::mox::TCell FW_TRACE_JOIN(fw_trace_, __LINE__) = \
        ::mox::open_trace(function, kLogSource, __LINE__, note)
#define FW_TRACE_JOIN(name, line) FW_TRACE_PASTE(name, line)
#define FW_TRACE_PASTE(name, line) name##line

namespace mox {

/// The system's id of the calling thread, cut to 32 bits.
unsigned int current_thread_id();

/// Begins a call on the process's tracer; it ends with the cell.
[[nodiscard]] inline TCell open_trace(const char* function, const char* file, int line,
                                      const char* note) {
    Func_Tracer* const tracer = Func_Tracer::instance();
    const unsigned int thread_id = current_thread_id();
    return {tracer, thread_id, line, tracer->deep_in(thread_id, function, file, line, note)};
}

}  // namespace mox
