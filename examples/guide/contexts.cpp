#include <connector/core/ConnectorImpl2.h>

#include <iostream>

using namespace connector;

/// Prints which of the five values below a context finds.
void print(const char* name, const Context& context) {
    std::cout << name << ':';
    for (const char* key : {"in Process", "in SharedSession", "in Session", "in Request", "in Local"})
        if (context.has(key))
            std::cout << " [" << boost::any_cast<const char*>(context.get(key)) << ']';
    std::cout << '\n';
}

int main() {
    const auto connector = std::make_shared<ConnectorImpl2>();
    const auto alice = connector->newContext()->newSession();
    alice->set("in Process", "everybody's", ContextScope::Process);
    alice->set("in SharedSession", "the party's", ContextScope::SharedSession);
    alice->set("in Session", "Alice's", ContextScope::Session);
    alice->set("in Request", "this request's", ContextScope::Request);
    alice->set("in Local", "this object's", ContextScope::Local);

    print("newLocal", *alice->newLocal());
    print("newRequest", *alice->newRequest());
    print("newSession", *alice->newSession());
    print("newSharedSession", *alice->newSharedSession());
    print("newContext", *connector->newContext());

    // Contexts that share a store see each other's changes.
    alice->newRequest()->set("colour", "green", ContextScope::Session);
    std::cout << "Alice's next request: " << boost::any_cast<const char*>(alice->newRequest()->get("colour")) << '\n';
    std::cout << "another session: " << (alice->newSession()->has("colour") ? "green" : "none") << '\n';
}
