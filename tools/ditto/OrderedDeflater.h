#pragma once

#include "ditto/PieceDeflater.h"

#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace ditto {

/// Compresses pieces on several threads and gives them back in the order in which they came. One thread uses
/// an object, and compresses too while it waits for a piece: on one core, for small content, and where the
/// system allows no more threads, it is the only one.
class OrderedDeflater {
public:
    /// At most `threads` threads, the caller's among them, and about 4 MiB of memory for each.
    explicit OrderedDeflater(unsigned threads);
    /// Waits for the pieces that threads are at; drops the others.
    ~OrderedDeflater();
    OrderedDeflater(const OrderedDeflater&) = delete;
    OrderedDeflater& operator=(const OrderedDeflater&) = delete;

    bool empty() const { return _jobs.empty(); }
    /// No piece may be added until one has been taken.
    bool full() const;

    /// A piece without content passes as it is.
    void add(Piece piece);

    struct Taken {
        Piece piece;
        DeflatedPiece deflated;
    };
    /// Waits for the piece that came first and removes it. Throws what kept it from being compressed. Not
    /// when empty.
    Taken takeFirst();

private:
    struct Job {
        Piece piece;
        DeflatedPiece deflated = {};
        std::exception_ptr failure = nullptr;
        bool isDone = false;
    };

    void startThreads();
    void work();
    void deflateNext(std::unique_lock<std::mutex>& lock, std::optional<PieceDeflater>& deflater);

    const unsigned _threadLimit;
    const std::size_t _jobLimit;
    /// For the caller's own thread.
    std::optional<PieceDeflater> _deflater;
    std::size_t _bytesInFlight = 0;
    /// Its ends and its length belong to the caller; `_mutex` guards the jobs that it holds, and the rest.
    std::deque<Job> _jobs;
    std::deque<Job*> _waiting;
    bool _stopping = false;
    std::mutex _mutex;
    std::condition_variable _jobWaits;
    std::condition_variable _jobDone;
    bool _hasStarted = false;
    std::vector<std::thread> _threads;
};

} // namespace ditto
