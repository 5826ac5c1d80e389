#include <connector/context/ContextData.h>

#include <cstddef>
#include <utility>

namespace connector {

boost::any ContextData::get(const std::string& key) const {
    const boost::any* value = find(key);
    return value ? *value : boost::any();
}

// The value is moved in: a copy could throw after the key has been inserted.
void ContextData::set(const std::string& key, boost::any value) {
    values[key] = std::move(value);
}

boost::any ContextData::erase(const std::string& key) {
    const std::size_t removed = values.erase(key);
    return removed;
}

} // namespace connector
