#pragma once

#include "Worker.h"

#include <connector/api/ServiceProvider.h>

#include <iosfwd>
#include <memory>
#include <string>
#include <utility>

namespace switchboard {

/// What every service here takes and gives: a line of text.
struct Text : connector::Message {
    explicit Text(std::string text) : text(std::move(text)) {}
    std::string text;
};

using connector::Reply;

/// A new provider of the kind, or null for a kind that doesn't exist:
///
///   text   text/upper, text/lower, text/reverse, text/words: the operation is the rest of the address
///   math   math/sum: sums the numbers in the text
///   later  answers from `worker`'s thread
///   fail   throws the text as a std::runtime_error; fail/int throws a number
///   store  store/set/SCOPE/KEY, store/get/SCOPE/KEY, store/erase/SCOPE/KEY; without SCOPE, all of them
///   audit  counts what passes, says so on `out`, and sends it on to the rest of its address
std::shared_ptr<connector::ServiceProvider> makeService(const std::string& kind, Worker<>& worker, std::ostream& out);

} // namespace switchboard
