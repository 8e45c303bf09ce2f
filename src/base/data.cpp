#include <framewell/base/data.h>

#include <atomic>

namespace mox {

template class ReadWriteMap<Value, DataPrivate::ReleaseVal>;

namespace {

// The installed store; null until one is asked for. Constant, so that it can be used before and
// after every other static object.
std::atomic<Data*> g_data{nullptr};

Data* install_default() {
    static auto* const s_default = new Data;  // never destroyed: workers may read it at exit
    Data* none = nullptr;
    return g_data.compare_exchange_strong(none, s_default) ? s_default : none;
}

}  // namespace

Data::Data() : m_map(std::make_unique<ReadWriteMap<Value, DataPrivate::ReleaseVal>>()) {}

Data::~Data() {
    Data* self = this;
    g_data.compare_exchange_strong(self, nullptr);
}

Data* Data::instance(Data* replacement) {
    if (replacement != nullptr) {
        g_data.store(replacement, std::memory_order_release);
        return replacement;
    }
    Data* const installed = g_data.load(std::memory_order_acquire);
    return installed != nullptr ? installed : install_default();
}

Value Data::data(const char* key, const Value& fallback) const {
    return m_map->data(key, fallback);
}

long long Data::integer(const char* key, long long fallback) const {
    return m_map->data(key, Value::m_invalid).toInteger(fallback);
}

bool Data::set(const char* key, const Value& value) {
    return m_map->set(key, value);
}

bool Data::remove(const char* key) {
    return m_map->remove(key);
}

}  // namespace mox
