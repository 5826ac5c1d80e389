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

/// A host that executes lines of text and prints the results to `out`:
///
///   ADDRESS TEXT    sends TEXT to ADDRESS and prints the reply or the failure
///   +NAME [KIND]    registers a new service of that kind (by default the name without its '?')
///   -NAME           removes a service
///   session NAME    uses that session for the following requests; creates it if it doesn't exist
///   list            prints the registered names
///   stop, start     stops and starts the connector
///   # TEXT          a remark, which is printed
class Switchboard {
public:
    Switchboard(std::shared_ptr<connector::Connector> connector, std::ostream& out);
    Switchboard(const Switchboard&) = delete;
    Switchboard& operator=(const Switchboard&) = delete;

    /// Removes its services: the connector, or its exchange, may outlive this object.
    ~Switchboard();

    /// Executes `line`. Throws std::invalid_argument if it can't be understood, and what the connector throws.
    void run(const std::string& line);

    /// The number of requests sent, and how many of them failed.
    std::size_t requests() const { return sent; }
    std::size_t failures() const { return failed; }

private:
    void execute(const std::string& command);
    void add(const std::string& arguments);
    void remove(const std::string& name);
    void list();
    void enterSession(const std::string& name);
    void request(const std::string& line);

    Worker<> worker; // for services that answer later; outlives them
    const std::shared_ptr<connector::Connector> connector;
    std::ostream& out;
    std::set<std::string> added;
    std::map<std::string, std::shared_ptr<connector::Context>> sessions;
    std::shared_ptr<connector::Context> session;
    std::size_t sent = 0;
    std::size_t failed = 0;
};

} // namespace switchboard
