#pragma once

#include "Worker.h"

#include <connector/api/Connector.h>

#include <cstddef>
#include <iosfwd>
#include <map>
#include <memory>
#include <set>
#include <string>

namespace switchboard {

/// A host that is driven by lines of text and answers on `out`, a line each:
///
///   ADDRESS TEXT    sends TEXT to ADDRESS and shows the reply or the failure
///   +NAME [KIND]    registers a new service of that kind (by default the name without its '?')
///   -NAME           removes a service
///   session NAME    lets the requests that follow run in that session, which is made when it is first named
///   list            shows the registered names
///   stop, start     stops and starts the connector
///   # TEXT          a remark, which is shown
class Switchboard {
public:
    Switchboard(std::shared_ptr<connector::Connector> connector, std::ostream& out);
    Switchboard(const Switchboard&) = delete;
    Switchboard& operator=(const Switchboard&) = delete;

    /// Removes what it registered: a connector may outlive it, and so may an exchange behind it.
    ~Switchboard();

    /// Does what `line` says. Throws std::invalid_argument when it says nothing sensible, and what a registration
    /// throws.
    void run(const std::string& line);

    /// How many requests were sent, and how many of them failed.
    std::size_t requests() const { return sent; }
    std::size_t failures() const { return failed; }

private:
    void add(const std::string& arguments);
    void remove(const std::string& name);
    void list();
    void enterSession(const std::string& name);
    void request(const std::string& address, const std::string& text);

    Worker<> worker; // for the services that answer later; ends after they were removed
    const std::shared_ptr<connector::Connector> connector;
    std::ostream& out;
    std::set<std::string> added;
    std::map<std::string, std::shared_ptr<connector::Context>> sessions;
    std::shared_ptr<connector::Context> session;
    std::size_t sent = 0;
    std::size_t failed = 0;
};

} // namespace switchboard
