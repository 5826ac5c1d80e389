#include "Switchboard.h"

#include <connector/core/ConnectorImpl2.h>
#include <connector/exchange/ConnectorImpl.h>
#include <fl/log/severity_mask.h>

#include <boost/log/expressions.hpp>
#include <boost/log/utility/setup/console.hpp>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace {

constexpr const char* usage = R"(usage: switchboard [--exchange] [--log] [--repeat N] [FILE ...]

Reads requests, one per line (ADDRESS<blank>TEXT), from the files or from standard input, and prints each reply or
failure.
  --exchange  sends through the process's message-service exchange instead of the in-process connector
  --log       prints the framework's log records to standard error
  --repeat N  runs all lines N times and prints only the number of requests per second
Exit status: 0 if every request was answered, 1 if one failed or a line was bad, 2 for wrong usage.
)";

struct Options {
    bool exchange = false;
    bool log = false;
    std::size_t repeat = 0;
    std::vector<std::string> files;
};

struct Line {
    std::string source; // FILE:NUMBER
    std::string text;
};

Options parse(const std::vector<std::string>& arguments) {
    Options options;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (argument == "--exchange") {
            options.exchange = true;
        } else if (argument == "--log") {
            options.log = true;
        } else if (argument == "--repeat") {
            const std::string count = i + 1 < arguments.size() ? arguments[++i] : "";
            const char* const end = count.data() + count.size();
            if (std::from_chars(count.data(), end, options.repeat).ptr != end || options.repeat == 0)
                throw std::invalid_argument("--repeat takes a number from 1 on");
        } else if (argument.size() > 1 && argument.front() == '-') {
            throw std::invalid_argument("there is no option '" + argument + "'");
        } else {
            options.files.push_back(argument);
        }
    }
    return options;
}

void read(std::istream& stream, const std::string& name, std::vector<Line>& lines) {
    std::size_t number = 0;
    for (std::string text; std::getline(stream, text);)
        lines.push_back({name + ":" + std::to_string(++number), text});
}

std::vector<Line> readAll(const std::vector<std::string>& files) {
    std::vector<Line> lines;
    for (const std::string& file : files) {
        std::ifstream stream(file);
        if (!stream)
            throw std::invalid_argument("can't read '" + file + "': " + std::generic_category().message(errno));
        read(stream, file, lines);
    }
    if (files.empty())
        read(std::cin, "stdin", lines);
    return lines;
}

/// How a host prints the framework's log records in its own format: it adds a sink and selects severities.
void showLog() {
    namespace log = boost::log;
    log::add_console_log(std::clog,
                         log::keywords::format = log::expressions::stream
                                                 << "   [" << log::expressions::attr<std::string>("Channel") << " "
                                                 << std::hex << std::showbase
                                                 << log::expressions::attr<std::uint32_t>("Severity") << "] "
                                                 << log::expressions::smessage,
                         log::keywords::auto_flush = true);
    fl::log::setEnabledSeverityMask("connector::framework", 0x308);
}

struct Total {
    std::size_t requests = 0;
    std::size_t failures = 0;
    std::size_t badLines = 0;
};

/// Either connector: the switchboard uses only the interface.
std::shared_ptr<connector::Connector> makeConnector(bool exchange) {
    if (exchange)
        return std::make_shared<connector::ConnectorImpl>();
    return std::make_shared<connector::ConnectorImpl2>("switchboard");
}

/// Runs all lines on a new host.
void runAll(const std::vector<Line>& lines, bool exchange, std::ostream& out, std::ostream& errors, Total& total) {
    switchboard::Switchboard board(makeConnector(exchange), out);
    for (const Line& line : lines) {
        try {
            board.run(line.text);
        } catch (const std::exception& error) {
            ++total.badLines;
            out << std::flush;
            errors << line.source << ": " << error.what() << std::endl;
        }
    }
    total.requests += board.requests();
    total.failures += board.failures();
}

} // namespace

int main(int argc, char** argv) {
    try {
        const Options options = parse({argv + 1, argv + argc});
        const std::vector<Line> lines = readAll(options.files);
        if (options.log)
            showLog();
        else
            fl::log::setEnabledSeverityMask("connector::framework", 0); // failures are printed with their requests

        Total total;
        if (options.repeat == 0) {
            runAll(lines, options.exchange, std::cout, std::cerr, total);
        } else {
            std::ostream nowhere(nullptr);
            const auto begin = std::chrono::steady_clock::now();
            for (std::size_t i = 0; i < options.repeat; ++i)
                runAll(lines, options.exchange, nowhere, nowhere, total);
            const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
            std::cout << total.requests << " requests in " << seconds.count()
                      << " s: " << static_cast<double>(total.requests) / seconds.count() << " requests per second\n";
        }
        return total.failures + total.badLines == 0 ? 0 : 1;
    } catch (const std::invalid_argument& error) {
        std::cerr << "switchboard: " << error.what() << "\n\n" << usage;
        return 2;
    }
}
