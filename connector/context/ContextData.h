#pragma once

#include <connector/Export.h>

#include <boost/any.hpp>
#include <boost/unordered_map.hpp>

#include <string>

namespace connector {

/// The data of one scope, shared by every context that sees that scope and freed with the last of them. An empty value
/// counts as a value. Takes no lock: reading from several threads is safe, writing beside anything else is not.
class CONNECTOR_IMPL_EXPORT ContextData {
public:
    /// Whether there is a value of `key`.
    bool contains(const std::string& key) const { return find(key) != nullptr; }

    /// A copy of the value of `key`, or an empty boost::any.
    boost::any get(const std::string& key) const;

    /// Stores `value` under `key`, replacing what was there. If memory runs out, std::bad_alloc is thrown and nothing
    /// has changed.
    void set(const std::string& key, boost::any value);

    /// Removes `key`. Returns the number of entries removed (0 or 1) as a std::size_t.
    boost::any erase(const std::string& key);

    /// The stored value itself, or null. Good until the next set() or erase().
    const boost::any* find(const std::string& key) const {
        const auto found = values.find(key);
        return found == values.end() ? nullptr : &found->second;
    }

private:
    boost::unordered_map<std::string, boost::any> values;
};

} // namespace connector
