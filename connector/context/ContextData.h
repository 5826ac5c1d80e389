#pragma once

#include <connector/Export.h>

#include <boost/any.hpp>
#include <boost/unordered_map.hpp>

#include <string>

namespace connector {

/// The data of one scope, owned by the contexts that share it. An empty value counts as a value. Takes no lock: several
/// threads may read at once; the host must keep set() and erase() apart from every other use.
class CONNECTOR_IMPL_EXPORT ContextData {
public:
    /// Whether `key` has a value.
    bool contains(const std::string& key) const { return find(key) != nullptr; }

    /// A copy of the value of `key`, or an empty boost::any.
    boost::any get(const std::string& key) const;

    /// Stores `value` under `key`, replacing an earlier value. If it throws std::bad_alloc, nothing has changed. The
    /// destructor of the earlier value may use this store.
    void set(const std::string& key, boost::any value);

    /// Removes `key`. Returns the number of entries removed (0 or 1) as a std::size_t. The destructor of the value may
    /// use this store.
    boost::any erase(const std::string& key);

    /// The stored value itself, or null. Valid until the next set() or erase().
    const boost::any* find(const std::string& key) const {
        const auto found = values.find(key);
        return found == values.end() ? nullptr : &found->second;
    }

private:
    boost::unordered_map<std::string, boost::any> values;
};

} // namespace connector
