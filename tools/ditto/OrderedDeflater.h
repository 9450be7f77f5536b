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

/// Compresses pieces on several threads and returns them in their original order. Only one thread may use an
/// object. That thread compresses too while it waits; it is the only one on one core, for little content,
/// and if the system allows no more threads.
class OrderedDeflater {
public:
    /// Uses at most `threads` threads, including the caller's, and about 4 MiB of memory for each.
    explicit OrderedDeflater(unsigned threads);
    /// Waits for the pieces that are being compressed and drops the others.
    ~OrderedDeflater();
    OrderedDeflater(const OrderedDeflater&) = delete;
    OrderedDeflater& operator=(const OrderedDeflater&) = delete;

    bool empty() const { return _jobs.empty(); }
    /// Whether a piece must be taken before the next one is added.
    bool full() const;

    /// A piece without content is not compressed: its DeflatedPiece is empty.
    void add(Piece piece);

    struct Taken {
        Piece piece;
        DeflatedPiece deflated;
    };
    /// Waits for the oldest piece and removes it. Throws the exception that its compression threw. Must not
    /// be called when empty.
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
    /// Used by the caller's thread.
    std::optional<PieceDeflater> _deflater;
    std::size_t _bytesInFlight = 0;
    /// Only the caller's thread adds and removes jobs. `_mutex` guards their contents and the next two
    /// members.
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
