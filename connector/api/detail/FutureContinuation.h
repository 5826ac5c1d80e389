#pragma once

#include <connector/Export.h>

namespace connector {

template <class T>
class Future;

namespace detail {

/// A continuation: called once, when the state to which it is attached is resolved. The state owns it until then, the
/// resolving call afterwards.
template <class T>
class FutureContinuation {
public:
    FutureContinuation(const FutureContinuation&) = delete;
    FutureContinuation& operator=(const FutureContinuation&) = delete;
    virtual ~FutureContinuation() = default;

    /// Receives the resolved future and may take its value; the caller destroys the future afterwards. Runs on the
    /// resolving thread with no lock of the state held. Its exception leaves the setValue() or setException() that ran
    /// it.
    virtual void invoke(Future<T>&& future) = 0;

protected:
    FutureContinuation() = default;
};

} // namespace detail
} // namespace connector
