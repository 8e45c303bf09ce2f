#include <framewell/base/config.h>

// Two steps: the first replaces the version macros by their numbers, the second makes them text.
#define FW_VERSION_TEXT(major, minor, patch) FW_VERSION_PASTE(major, minor, patch)
#define FW_VERSION_PASTE(major, minor, patch) #major "." #minor "." #patch

namespace ff {

const char* framewell_version() {
    return FW_VERSION_TEXT(FRAMEWELL_VERSION_MAJOR, FRAMEWELL_VERSION_MINOR,
                           FRAMEWELL_VERSION_PATCH);
}

}  // namespace ff
