#pragma once

#include "support/Futures.h"

#include <ostream>
#include <vector>

namespace connector::test {

/// What a continuation captures: it calls `runs` when it runs; `held` is destroyed with it.
struct Captured {
    std::function<void()> runs = [] {};
    std::shared_ptr<void> held = nullptr;
};

/// A way to continue with two futures. The result gives what `source` gives, and nothing of what `other` gives.
struct Mechanism {
    const char* name;
    Future<int> (*link)(Future<int>&& source, Future<int>&& other, Captured captured);
    /// What it waits for before it runs. If that is one of the two, it doesn't run when that is cancelled.
    bool needsSource, needsOther;
    /// Then it runs when its result is cancelled.
    bool isCoroutine = false;

    bool needsBoth() const { return needsSource && needsOther; }
    std::string_view textOf(const End& source) const {
        return needsBoth() && &source == &ends[3] ? invalidText : source.text;
    }
};
inline std::ostream& operator<<(std::ostream& stream, const Mechanism& how) {
    return stream << how.name;
}

/// Those that this program tests: functions, or coroutines.
std::vector<Mechanism> mechanisms();

} // namespace connector::test
