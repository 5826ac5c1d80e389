#include <connector/context/ContextData.h>

#include <cstddef>

namespace connector {

boost::any ContextData::get(const std::string& key) const {
    const boost::any* value = find(key);
    return value ? *value : boost::any();
}

// Swapped, not copied: a copy could throw after the key has been inserted. The earlier value is destroyed last, with
// the parameter.
void ContextData::set(const std::string& key, boost::any value) {
    values[key].swap(value);
}

boost::any ContextData::erase(const std::string& key) {
    // Removed from the table before it is destroyed: the value's destructor may use the table.
    const auto removed = values.extract(key);
    return std::size_t{removed.empty() ? 0U : 1U};
}

} // namespace connector
