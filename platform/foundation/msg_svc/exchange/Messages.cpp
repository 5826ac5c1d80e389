#include <foundation/msg_svc/exchange/Message.h>
#include <foundation/msg_svc/exchange/Reply.h>

#include <boost/core/demangle.hpp>

#include <ostream>
#include <typeinfo>

namespace foundation::msg_svc::exchange {
namespace {

void writeType(std::ostream& stream, int indentation, const std::type_info& type) {
    // Independent of the stream's fill character.
    for (int i = 0; i < indentation; ++i)
        stream.put(' ');
    stream << boost::core::demangle(type.name());
}

} // namespace

Message::~Message() = default;

boost::shared_ptr<const Reply> Message::createUndeliverableReply(const Envelope&) const {
    return {};
}

void Message::toString(std::ostream& stream, int indentation) const {
    writeType(stream, indentation, typeid(*this));
}

bool Message::protectedEquals(const Message& other) const {
    return this == &other;
}

Reply::~Reply() = default;

void Reply::toString(std::ostream& stream, int indentation) const {
    writeType(stream, indentation, typeid(*this));
}

bool Reply::protectedEquals(const Reply& other) const {
    return this == &other;
}

} // namespace foundation::msg_svc::exchange
