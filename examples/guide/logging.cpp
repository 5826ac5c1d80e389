#include <connector/core/ConnectorImpl2.h>
#include <fl/log/severity_mask.h>

#include <boost/log/core.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/utility/exception_handler.hpp>
#include <boost/make_shared.hpp>

#include <iostream>
#include <stdexcept>

using namespace connector;
namespace logging = boost::log;
namespace expressions = boost::log::expressions;
namespace sinks = boost::log::sinks;

/// The backend of a sink: prints each record, or throws.
class Printer : public sinks::basic_formatted_sink_backend<char, sinks::synchronized_feeding> {
public:
    void consume(const logging::record_view&, const std::string& line) const {
        if (broken)
            throw std::runtime_error("disk full");
        std::cout << "  " << line << '\n';
    }
    bool broken = false;
};

struct Empty : Message {};

int main() {
    const auto printer = boost::make_shared<Printer>();
    const auto sink = boost::make_shared<sinks::synchronous_sink<Printer>>(printer);
    sink->set_filter(expressions::attr<std::string>("Channel") == "connector::framework");
    sink->set_formatter(expressions::stream << std::hex << std::showbase << expressions::attr<std::uint32_t>("Severity")
                                            << ' ' << expressions::smessage);
    logging::core::get()->add_sink(sink);

    const auto connector = std::make_shared<ConnectorImpl2>();
    const auto request = [&connector] {
        try {
            connector->handle(std::make_unique<Empty>(), Address("?audit/desk/7"), nullptr);
        } catch (const std::runtime_error& error) {
            std::cout << "  handle() threw: " << error.what() << '\n';
        }
    };
    for (const std::uint32_t mask : {0x308u, 0x300u, 0x0u}) {
        std::cout << "mask " << std::hex << std::showbase << mask << '\n';
        fl::log::setEnabledSeverityMask("connector::framework", mask);
        request();
    }

    fl::log::setEnabledSeverityMask("connector::framework", 0x300);
    printer->broken = true;
    std::cout << "a sink that throws\n";
    request();
    std::cout << "the same with an exception handler\n";
    logging::core::get()->set_exception_handler(logging::make_exception_suppressor());
    request();
}
