#include "ditto/OrderedDeflater.h"

#include <sys/resource.h>

#include <algorithm>
#include <system_error>

namespace ditto {
namespace {

/// Compressing this many bytes takes milliseconds, a hundred times as long as starting threads.
constexpr std::size_t worthThreads = std::size_t{128} << 10;
/// Enough pieces to keep all threads busy with small files. Each piece keeps a file open, so this is about
/// half of the limit for open files. The folders above the files need the rest.
std::size_t mostJobs() {
    constexpr rlim_t enough = 256;
    rlimit openFiles;
    return getrlimit(RLIMIT_NOFILE, &openFiles) == 0 ? std::min(enough, openFiles.rlim_cur / 2 + 1) : enough;
}

} // namespace

OrderedDeflater::OrderedDeflater(unsigned threads) : _threadLimit(threads), _jobLimit(mostJobs()) {}

OrderedDeflater::~OrderedDeflater() {
    {
        const std::lock_guard lock(_mutex);
        _stopping = true;
    }
    _jobWaits.notify_all();
    for (std::thread& thread : _threads)
        thread.join();
}

bool OrderedDeflater::full() const {
    // Two pieces for each thread: it can start the next one while the first one waits to be written.
    return _jobs.size() >= _jobLimit || _bytesInFlight >= (2 * _threads.size() + 3) * pieceSize;
}

void OrderedDeflater::add(Piece piece) {
    _bytesInFlight += piece.size;
    {
        const std::lock_guard lock(_mutex);
        Job& job = _jobs.emplace_back(Job{.piece = std::move(piece)});
        job.isDone = job.piece.size == 0;
        if (!job.isDone)
            _waiting.push_back(&job);
    }
    if (!_hasStarted && _jobs.size() > 1 && _bytesInFlight > worthThreads)
        startThreads();
    _jobWaits.notify_one();
}

OrderedDeflater::Taken OrderedDeflater::takeFirst() {
    Job& job = _jobs.front();
    std::unique_lock lock(_mutex);
    // Compress other pieces instead of waiting, unless all of them are in progress.
    while (!job.isDone) {
        if (_waiting.empty())
            _jobDone.wait(lock);
        else
            deflateNext(lock, _deflater);
    }
    if (job.failure)
        std::rethrow_exception(job.failure);
    Taken taken{std::move(job.piece), std::move(job.deflated)};
    _jobs.pop_front();
    _bytesInFlight -= taken.piece.size;
    return taken;
}

void OrderedDeflater::startThreads() {
    _hasStarted = true;
    _threads.reserve(_threadLimit);
    try {
        while (_threads.size() + 1 < _threadLimit)
            _threads.emplace_back([this] { work(); });
    } catch (const std::system_error&) {
        // The system allows no more threads. The existing ones do the work.
    }
}

void OrderedDeflater::work() {
    std::optional<PieceDeflater> deflater;
    std::unique_lock lock(_mutex);
    while (true) {
        _jobWaits.wait(lock, [&] { return _stopping || !_waiting.empty(); });
        if (_stopping)
            return;
        deflateNext(lock, deflater);
        _jobDone.notify_one();
    }
}

void OrderedDeflater::deflateNext(std::unique_lock<std::mutex>& lock,
                                  std::optional<PieceDeflater>& deflater) {
    Job& job = *_waiting.front();
    _waiting.pop_front();
    lock.unlock();
    try {
        if (!deflater)
            deflater.emplace();
        job.deflated = deflater->deflate(job.piece);
    } catch (...) {
        job.failure = std::current_exception(); // thrown to the caller when the piece's turn comes
    }
    lock.lock();
    job.isDone = true;
}

} // namespace ditto
