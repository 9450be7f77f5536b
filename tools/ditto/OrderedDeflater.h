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
/// an object. Threads start only once there is more work than a start is worth; the first pieces, and all
/// of them where there is one core, are compressed by the caller.
class OrderedDeflater {
public:
    /// At most `threads` threads, and about 2 MiB of memory for each.
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
    void deflateHere(Job& job);
    void work();

    const unsigned _threadLimit;
    const std::size_t _jobLimit;
    /// For the caller's own thread.
    std::optional<PieceDeflater> _deflater;
    std::size_t _bytesDoneByCaller = 0;
    std::size_t _bytesInFlight = 0;
    /// Its end and its length belong to the caller; `_mutex` guards the rest once there are threads.
    std::deque<Job> _jobs;
    std::deque<Job*> _waiting;
    bool _stopping = false;
    std::mutex _mutex;
    std::condition_variable _jobWaits;
    std::condition_variable _jobDone;
    std::vector<std::thread> _threads;
};

} // namespace ditto
