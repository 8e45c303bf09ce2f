#include <framewell/base/statics.h>

namespace mox {

Statics g_statics;

}  // namespace mox
