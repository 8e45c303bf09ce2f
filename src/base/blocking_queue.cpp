#include <framewell/base/blocking_queue.h>

namespace mox {

template class BlockingQueue<std::function<void()>>;

}  // namespace mox
