#pragma once

#include <connector/async/detail/FutureAccess.h>

#include <cassert>
#include <exception>
#include <memory>
#include <new>
#include <utility>

namespace connector::detail {

/// Memory for one object, allocated before the object is made.
template <class T>
class Cell {
public:
    Cell() : room(std::allocator<T>().allocate(1)) {}
    Cell(const Cell&) = delete;
    Cell& operator=(const Cell&) = delete;
    ~Cell() {
        if (room)
            std::allocator<T>().deallocate(room, 1);
    }

    /// Deletes the object of a cell as it was allocated, without T's own operators.
    struct Delete {
        void operator()(T* filled) const noexcept { ::delete filled; }
    };
    using Filled = std::unique_ptr<T, Delete>;

    /// Makes the object from the result of `make`. If that throws, the cell still has its memory.
    template <class Make>
    Filled fill(Make&& make) {
        assert(room);
        T* const filled = ::new (static_cast<void*>(room)) T(std::forward<Make>(make)());
        room = nullptr;
        return Filled(filled);
    }

private:
    T* room;
};

/// A value or an exception, in the cell that a state takes over.
template <class T>
struct Outcome {
    typename Cell<T>::Filled value;
    typename Cell<std::exception_ptr>::Filled exception;
};

/// Memory for an outcome. It is allocated before any future waits for the outcome, so that the outcome can't be lost
/// for lack of memory.
template <class T>
class OutcomeRoom {
public:
    /// The result or the exception of `make`.
    template <class Make>
    Outcome<T> hold(Make&& make) noexcept {
        try {
            return {value.fill(std::forward<Make>(make)), nullptr};
        } catch (...) {
            return holdException(std::current_exception());
        }
    }

    Outcome<T> holdException(std::exception_ptr thrown) noexcept {
        return {nullptr, exception.fill([&] { return std::move(thrown); })};
    }

    /// The outcome of a resolved future. Doesn't throw its exception.
    Outcome<T> holdOutcomeOf(Future<T>&& source) noexcept {
        if (FutureAccess::failed(source))
            return holdException(FutureAccess::takeFailure(source));
        return hold([&] { return source.get(); });
    }

    /// The exception of a future whose value is already claimed.
    Outcome<T> holdRefusal() noexcept {
        return hold([]() -> T { throwFutureRetrieved(); });
    }

private:
    Cell<T> value;
    Cell<std::exception_ptr> exception;
};

} // namespace connector::detail
