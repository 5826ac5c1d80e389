#pragma once

#include "Worker.h"

#include <connector/api/ServiceProvider.h>

#include <iosfwd>
#include <memory>
#include <string>
#include <utility>

namespace switchboard {

/// The message that every service here accepts and answers with: a line of text.
struct Text : connector::Message {
    explicit Text(std::string text) : text(std::move(text)) {}
    std::string text;
};

using connector::Reply;

/// A new provider of `kind`, or null if there is no such kind:
///
///   text   text/upper, text/lower, text/reverse, text/words: the operation is the rest of the address
///   math   math/sum: sums the numbers in the text
///   later  answers from `worker`'s thread
///   fail   throws the text as a std::runtime_error; fail/int throws a number
///   store  store/set/SCOPE/KEY, store/get/SCOPE/KEY, store/erase/SCOPE/KEY; without SCOPE, all scopes
///   audit  an interceptor: counts messages, prints each to `out`, and sends it on to the rest of its address
std::shared_ptr<connector::ServiceProvider> makeService(const std::string& kind, Worker<>& worker, std::ostream& out);

} // namespace switchboard
