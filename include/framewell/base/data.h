#pragma once

#include <framewell/base/config.h>
#include <framewell/base/read_write_mutex.h>
#include <framewell/base/value.h>

#include <memory>
#include <string>
#include <unordered_map>
#include <utility>

/// @file
/// The process-wide store of settings by name.

namespace mox {

/// What the store's map is made with.
struct DataPrivate {
    /// What happens to a stored value that leaves the map: nothing but its own destructor.
    struct ReleaseVal {
        /// Does nothing.
        void operator()(Value& /*value*/) const {}
    };
};

/// Values by name behind a lock of their own.
/// @tparam T        can be default-made and moved, and has copyValue(const T*), a deep copy.
/// @tparam Release  called with each value that is about to leave the map.
/// Thread-safety: safe.
template <class T, class Release>
class ReadWriteMap : public ReadWriteMutex {
public:
    /// Makes an empty map.
    ReadWriteMap() : ReadWriteMutex(false) { m_values.max_load_factor(1.0F); }

    ReadWriteMap(const ReadWriteMap&) = delete;
    ReadWriteMap& operator=(const ReadWriteMap&) = delete;

    /// Releases all values. No thread may be using the map any more.
    ~ReadWriteMap() override {
        for (auto& entry : m_values) {
            Release()(entry.second);
        }
    }

    /// Returns a deep copy of the value of `key`, or of `fallback` if there is none. A null key has
    /// none.
    T data(const char* key, const T& fallback) {
        T copy;
        const ReadLocker lock(this);
        const auto entry = key != nullptr ? m_values.find(key) : m_values.end();
        copy.copyValue(entry != m_values.end() ? &entry->second : &fallback);
        return copy;
    }

    /// Stores a deep copy of `value` in place of what `key` had. False: `key` is null.
    bool set(const char* key, const T& value) {
        if (key == nullptr) {
            return false;
        }
        const WriteLocker lock(this);
        T copy;  // first: a copy that fails leaves the map as it is
        copy.copyValue(&value);
        const auto [entry, inserted] = m_values.try_emplace(key);
        if (!inserted) {
            Release()(entry->second);
        }
        entry->second = std::move(copy);
        return true;
    }

    /// Takes the value of `key` away. False: there is none.
    bool remove(const char* key) {
        if (key == nullptr) {
            return false;
        }
        const WriteLocker lock(this);
        const auto entry = m_values.find(key);
        if (entry == m_values.end()) {
            return false;
        }
        Release()(entry->second);
        m_values.erase(entry);
        return true;
    }

private:
    std::unordered_map<std::string, T> m_values;  // guarded by the lock that this is
};

/// The map behind Data; compiled once, in the library.
extern template class FRAMEWELL_API ReadWriteMap<Value, DataPrivate::ReleaseVal>;

/// The store that framewell reads its settings from:
///
///     mox::Data::instance()->set("dec.max_vf", mox::Value::integer(16));
///
/// - "dec.max_vf": pictures that each decoding worker keeps (default 8)
/// - "dec.max_af": audio frames that each decoding worker keeps (default 500)
///
/// A worker reads them when it is made, which a decoder's open() does. Other names are the host's
/// own.
///
/// Thread-safety: safe.
class FRAMEWELL_API Data {
public:
    /// Makes an empty store.
    Data();
    Data(const Data&) = delete;
    Data& operator=(const Data&) = delete;

    /// If this is the process's store, an empty default one takes over. No thread may be using this
    /// store any more.
    ~Data();

    /// Returns the process's store; with an argument, installs that one first. The host owns what
    /// it installs and keeps it until no thread can be using it; the one before is neither deleted
    /// nor told. The default store is made on first use and never destroyed.
    static Data* instance(Data* replacement = nullptr);

    /// Returns a deep copy of the value of `key`, or of `fallback` if there is none. A null key has
    /// none.
    Value data(const char* key, const Value& fallback) const;

    /// Returns the value of `key` as Value::toInteger() converts it; `fallback` if there is none or
    /// it does not convert.
    long long integer(const char* key, long long fallback) const;

    /// Stores a deep copy of `value` in place of what `key` had. False: `key` is null.
    bool set(const char* key, const Value& value);

    /// Takes the value of `key` away. False: there is none.
    bool remove(const char* key);

private:
    const std::unique_ptr<ReadWriteMap<Value, DataPrivate::ReleaseVal>> m_map;
};

}  // namespace mox
