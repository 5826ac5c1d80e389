#pragma once

#include <connector/async/detail/Gathering.h>

#include <cstddef>
#include <memory>
#include <tuple>
#include <utility>
#include <vector>

namespace connector::detail {

template <class T>
class AllGathering final : public VectorGathering<T> {
public:
    AllGathering(std::size_t count, std::shared_ptr<ResultState<std::vector<Future<T>>>> result)
        : VectorGathering<T>(count), result(std::move(result)) {
        futures.reserve(count);
    }

private:
    void complete(Work& work) override {
        for (Gathered<T>& each : this->gathered)
            futures.push_back(each.take());
        publish(result, room.hold([&] { return std::move(futures); }), work);
    }

    OutcomeRoom<std::vector<Future<T>>> room;
    std::vector<Future<T>> futures;
    const std::shared_ptr<ResultState<std::vector<Future<T>>>> result;
};

template <class... T>
class TupleGathering final : public Gathering {
public:
    using Futures = std::tuple<Future<T>...>;

    explicit TupleGathering(std::shared_ptr<ResultState<Futures>> result)
        : Gathering(sizeof...(T)), result(std::move(result)) {}

    using Links = std::tuple<std::unique_ptr<ArriveLink<T>>...>;

    /// Makes one link for each future. The futures are unchanged.
    template <std::size_t... index>
    Links prepare(std::index_sequence<index...>, const Future<T>&... futures) {
        (addSource(futures), ...);
        return {std::make_unique<ArriveLink<T>>(shared_from_this(), index, std::get<index>(gathered).slot)...};
    }

    /// Takes the futures over.
    template <std::size_t... index>
    void begin(std::index_sequence<index...>, Future<T>&&... futures, Links&& links, Work& work) {
        ((std::get<index>(gathered).slot = std::move(futures)), ...);
        (std::get<index>(gathered).await(*this, index, std::move(std::get<index>(links)), work), ...);
        countDown(work);
    }

private:
    void complete(Work& work) override {
        const auto take = [](auto&... each) { return Futures(each.take()...); };
        publish(result, room.hold([&] { return std::apply(take, gathered); }), work);
    }

    OutcomeRoom<Futures> room;
    std::tuple<Gathered<T>...> gathered;
    const std::shared_ptr<ResultState<Futures>> result;
};

} // namespace connector::detail
