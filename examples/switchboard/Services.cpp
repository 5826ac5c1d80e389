#include "Services.h"

#include <connector/async/Promise.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <numeric>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace switchboard {
namespace {

using connector::Address;
using connector::Context;
using connector::ContextScope;
using connector::Message;
using connector::ServiceProvider;

std::string& textOf(const std::unique_ptr<Message>& message) {
    return dynamic_cast<Text&>(*message).text;
}

Reply answer(std::string text) {
    return connector::makeReadyFuture<std::unique_ptr<Message>>(std::make_unique<Text>(std::move(text)));
}

[[noreturn]] void refuseOperation(const std::string& service, const std::string& operation) {
    throw std::invalid_argument("the " + service + " service has no operation '" + operation + "'");
}

std::vector<std::string> wordsOf(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

class TextService : public ServiceProvider {
    Reply handle(std::unique_ptr<Message>&& message, Address&& address, std::shared_ptr<Context>&&) override {
        const std::string operation = address.pop();
        std::string text = textOf(message);
        const auto map = [&text](int (*function)(int)) {
            std::transform(text.begin(), text.end(), text.begin(),
                           [function](unsigned char character) { return static_cast<char>(function(character)); });
        };
        if (operation == "upper")
            map(std::toupper);
        else if (operation == "lower")
            map(std::tolower);
        else if (operation == "reverse")
            std::reverse(text.begin(), text.end());
        else if (operation == "words")
            text = std::to_string(wordsOf(text).size());
        else
            refuseOperation("text", operation);
        return answer(std::move(text));
    }
};

class MathService : public ServiceProvider {
    Reply handle(std::unique_ptr<Message>&& message, Address&& address, std::shared_ptr<Context>&&) override {
        const std::string operation = address.pop();
        if (operation != "sum")
            refuseOperation("math", operation);
        const std::vector<std::string> words = wordsOf(textOf(message));
        std::ostringstream sum;
        sum << std::accumulate(words.begin(), words.end(), 0.0,
                               [](double left, const std::string& word) { return left + numberOf(word); });
        return answer(sum.str());
    }

    static double numberOf(const std::string& word) {
        std::istringstream stream(word);
        double number = 0;
        if (!(stream >> number) || stream.peek() != std::istringstream::traits_type::eof())
            throw std::invalid_argument("'" + word + "' is not a number");
        return number;
    }
};

/// Answers later, on the host's worker. While stopped it refuses messages; it still answers those it accepted before.
/// The host joins the worker: stop() and a provider's destructor may run under the connector's lock, and the worker may
/// be running a continuation that waits for that lock.
class LaterService : public ServiceProvider {
public:
    explicit LaterService(Worker<>& worker) : worker(worker) {}

private:
    Reply handle(std::unique_ptr<Message>&& message, Address&&, std::shared_ptr<Context>&&) override {
        if (!running)
            throw std::runtime_error("the later service is not running");
        connector::Promise<std::unique_ptr<Message>> promise;
        Reply reply = promise.future();
        worker.post(std::packaged_task<void()>([promise = std::move(promise), text = textOf(message)]() mutable {
            promise.setValue(std::make_unique<Text>(text + ", a moment later"));
        }));
        return reply;
    }

    Worker<>& worker;
};

class FailService : public ServiceProvider {
    Reply handle(std::unique_ptr<Message>&& message, Address&& address, std::shared_ptr<Context>&&) override {
        if (address.pop() == "int")
            throw 7;
        throw std::runtime_error(textOf(message));
    }
};

class StoreService : public ServiceProvider {
    Reply handle(std::unique_ptr<Message>&& message, Address&& address, std::shared_ptr<Context>&& context) override {
        if (!context)
            throw std::invalid_argument("the store service needs a context");
        const std::string operation = address.pop();
        const std::string first = address.pop();
        const bool everywhere = address.empty();
        const std::string key = everywhere ? first : address.pop();
        const ContextScope scope = everywhere ? ContextScope::Local : scopeOf(first);
        if (operation == "set" && !everywhere) {
            context->set(key, textOf(message), scope);
            return answer("set");
        }
        if (operation == "get") {
            const boost::any value = everywhere ? context->get(key) : context->get(key, scope);
            return answer(value.empty() ? "(nothing)" : boost::any_cast<std::string>(value));
        }
        if (operation == "erase") {
            const boost::any removed = everywhere ? context->erase(key) : context->erase(key, scope);
            return answer(removed.empty() ? "erased"
                                          : std::to_string(boost::any_cast<std::size_t>(removed)) + " erased");
        }
        refuseOperation("store", operation);
    }

    static ContextScope scopeOf(const std::string& name) {
        constexpr std::array<const char*, 5> names = {"process", "sharedsession", "session", "request", "local"};
        const auto found = std::find(names.begin(), names.end(), name);
        if (found == names.end())
            throw std::invalid_argument("there is no scope '" + name + "'");
        return static_cast<ContextScope>(found - names.begin());
    }
};

/// An interceptor. A request whose address begins with "?audit" passes through this service if it is registered, and
/// goes straight to the next service otherwise.
class AuditService : public ServiceProvider {
public:
    explicit AuditService(std::ostream& out) : out(out) {}

private:
    Reply handle(std::unique_ptr<Message>&& message, Address&& address, std::shared_ptr<Context>&& context) override {
        if (!context)
            throw std::invalid_argument("the audit service needs a context to send on through");
        out << "   audit: message " << ++passed << " goes to " << address.toString() << '\n';
        return context->handle(std::move(message), std::move(address));
    }

    std::ostream& out;
    std::atomic<int> passed{0};
};

} // namespace

std::shared_ptr<ServiceProvider> makeService(const std::string& kind, Worker<>& worker, std::ostream& out) {
    if (kind == "text")
        return std::make_shared<TextService>();
    if (kind == "math")
        return std::make_shared<MathService>();
    if (kind == "later")
        return std::make_shared<LaterService>(worker);
    if (kind == "fail")
        return std::make_shared<FailService>();
    if (kind == "store")
        return std::make_shared<StoreService>();
    if (kind == "audit")
        return std::make_shared<AuditService>(out);
    return nullptr;
}

} // namespace switchboard
