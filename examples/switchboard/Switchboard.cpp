#include "Services.h"
#include "Switchboard.h"

#include <ostream>
#include <stdexcept>
#include <utility>

namespace switchboard {
namespace {

using connector::Address;

/// The text before the first blank and the text after it, and whether there is a blank.
struct Split {
    std::string head, tail;
    bool split;
};

Split splitAtBlank(const std::string& text) {
    const std::size_t blank = text.find(' ');
    if (blank == std::string::npos)
        return {text, "", false};
    return {text.substr(0, blank), text.substr(blank + 1), true};
}

bool isCommand(const std::string& line) {
    return line.front() == '+' || line.front() == '-' || line == "list" || line == "stop" || line == "start" ||
           splitAtBlank(line).head == "session";
}

} // namespace

Switchboard::Switchboard(std::shared_ptr<connector::Connector> connector, std::ostream& out)
    : connector(std::move(connector)), out(out) {
    enterSession("default");
}

Switchboard::~Switchboard() {
    for (const std::string& name : added)
        connector->removeServiceProvider(name);
}

void Switchboard::run(const std::string& line) {
    if (line.empty() || line.front() == '#') {
        out << line << '\n';
        return;
    }
    if (isCommand(line)) {
        out << "   " << line << '\n';
        execute(line);
    } else {
        request(line);
    }
}

void Switchboard::execute(const std::string& command) {
    if (command.front() == '+')
        add(command.substr(1));
    else if (command.front() == '-')
        remove(command.substr(1));
    else if (command == "list")
        list();
    else if (command == "stop")
        connector->stop();
    else if (command == "start")
        connector->start();
    else
        enterSession(splitAtBlank(command).tail);
}

void Switchboard::add(const std::string& arguments) {
    const auto [name, given, split] = splitAtBlank(arguments);
    const std::string kind = split ? given : name.substr(!name.empty() && name.front() == '?');
    const auto service = makeService(kind, worker, out);
    if (!service)
        throw std::invalid_argument("there is no kind of service '" + kind + "'");
    connector->addServiceProvider(name, service);
    added.insert(name);
}

void Switchboard::remove(const std::string& name) {
    connector->removeServiceProvider(name);
    added.erase(name);
}

void Switchboard::list() {
    const std::set<std::string> names = connector->listServiceProviders();
    out << "  ";
    for (const std::string& name : names)
        out << ' ' << name;
    out << '\n';
}

void Switchboard::enterSession(const std::string& name) {
    if (name.empty())
        throw std::invalid_argument("expected session<blank>NAME");
    std::shared_ptr<connector::Context>& named = sessions[name];
    if (!named)
        named = connector->newContext()->newSession();
    session = named;
}

void Switchboard::request(const std::string& line) {
    const auto [address, text, split] = splitAtBlank(line);
    if (!split)
        throw std::invalid_argument("expected ADDRESS<blank>TEXT, got '" + line + "'");
    ++sent;
    const auto failure = [&](const std::string& reason) {
        ++failed;
        out << line << "  !!  " << reason << '\n';
    };
    try {
        auto reply = session->newRequest()->handle(std::make_unique<Text>(text), Address(address));
        const auto message = reply.get();
        out << line << "  ->  " << dynamic_cast<const Text&>(*message).text << '\n';
    } catch (const std::invalid_argument& exception) {
        failure(std::string("invalid_argument: ") + exception.what());
    } catch (const std::runtime_error& exception) {
        failure(std::string("runtime_error: ") + exception.what());
    } catch (const std::exception& exception) {
        failure(exception.what());
    } catch (...) {
        failure("something that is not an exception");
    }
}

} // namespace switchboard
