#include <connector/async/Cancel.h>
#include <connector/async/Collect.h>
#include <connector/async/Ensure.h>
#include <connector/async/Promise.h>
#include <connector/async/ThenError.h>
#include <connector/async/ThenValue.h>
#include <connector/async/Within.h>

#include <iostream>
#include <stdexcept>
#include <system_error>
#include <thread>

using namespace connector;

/// Three services that answer later, here from main().
struct Shop {
    Promise<int> stock;
    Promise<int> price;
    Promise<int> delivery;
};

/// An offer for one order. Asks the three services at once, and holds a reservation until all is known.
Future<std::string> offer(Shop& shop) {
    std::vector<Future<int>> answers;
    answers.push_back(shop.stock.future());
    // The list price, if there is no better one.
    answers.push_back(shop.price.future() | thenError<std::domain_error>([](std::domain_error&) { return 20; }));
    // A week, if the service doesn't answer in time.
    answers.push_back(shop.delivery.future() | within(std::chrono::milliseconds(10)) |
                      thenError<std::system_error>([](std::system_error&) { return 7; }));
    return collect(std::move(answers)) | thenValue([](std::vector<int> found) {
               return std::to_string(found[0]) + " in stock, " + std::to_string(found[1]) + " each, in " +
                      std::to_string(found[2]) + " days";
           }) |
           ensure([] { std::cout << "reservation released\n"; });
}

int main() {
    Shop shop;
    Future<std::string> offered = offer(shop);
    std::thread warehouse([&] { shop.stock.setValue(3); });
    shop.price.setException(std::make_exception_ptr(std::domain_error("no price today")));
    std::cout << offered.get() << '\n';
    std::cout << "delivery cancelled: " << std::boolalpha << shop.delivery.cancelled() << '\n';
    warehouse.join();

    // The customer leaves: everything that is pending is cancelled, and the reservation is released.
    Shop other;
    other.stock.onCancel([] { std::cout << "warehouse: stops counting\n"; });
    offered = offer(other);
    cancel(offered);
    std::cout << "price cancelled: " << other.price.cancelled() << '\n';
}
