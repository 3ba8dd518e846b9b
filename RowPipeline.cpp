// The render-ahead pipeline: a ring of row buffers shared by one rendering worker and the consumer.
#include "RowPipeline.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "StopSignals.h"

namespace {

// How far the worker may run ahead: enough to ride out the encoder's uneven pace, few enough that
// the ring stays small at 16K (32 rows of 16384 pixels x 8 bytes = 4 MB).
constexpr int ringRows = 32;
// A side that has caught up with the other sleeps until this many rows are ready for it (or the
// last ones), so that the threads wake each other a few times per batch rather than every row.
constexpr int wakeBatch = 8;

// Starts a thread with the stop signals blocked for good, so that they reach the main thread, whose
// handler removes the output's temporaries. The caller's own mask is blocked only while the thread is
// created: a signal arriving meanwhile stays pending and is handled as soon as the mask is restored.
template <typename Body>
std::thread startWithStopSignalsBlocked(Body&& body) {
    const StopSignals::Blocked blocked;
    return std::thread(std::forward<Body>(body));
}

}  // namespace

template <typename Kind>
bool streamRows(RowSourceOf<Kind>& source, const std::function<void(uint16_t*)>& prepare,
                const typename RowConsumer<Kind>::type& consume) {
    const int rows = source.rows();
    if (rows <= 0) return true;
    const size_t rowSamples = source.rowSamples();
    const int depth = std::min(ringRows, rows);
    const int batch = std::min(wakeBatch, depth);
    std::vector<uint16_t> ring(rowSamples * static_cast<size_t>(depth));
    const auto slot = [&](int row) { return ring.data() + rowSamples * static_cast<size_t>(row % depth); };

    // Each side sleeps on its own condition and is woken only once what it waits for is there.
    std::mutex mutex;
    std::condition_variable rowsReady, slotsFree;
    int produced = 0, consumed = 0;
    int consumerWantsProduced = 0;  // 0: the consumer is not waiting
    int workerWantsConsumed = 0;    // 0: the worker is not waiting
    bool stop = false;
    std::exception_ptr error;

    std::thread worker = startWithStopSignalsBlocked([&] {
        try {
            for (int y = 0; y < rows; ++y) {
                {
                    std::unique_lock<std::mutex> lock(mutex);
                    if (produced - consumed == depth) {
                        workerWantsConsumed = produced - depth + batch;
                        slotsFree.wait(lock, [&] { return stop || consumed >= workerWantsConsumed; });
                        workerWantsConsumed = 0;
                    }
                    if (stop) return;
                }
                uint16_t* row = slot(y);
                source.nextRow(row);
                if (prepare) prepare(row);
                std::lock_guard<std::mutex> lock(mutex);
                ++produced;
                if (consumerWantsProduced != 0 && produced >= consumerWantsProduced) rowsReady.notify_one();
            }
        } catch (...) {
            std::lock_guard<std::mutex> lock(mutex);
            error = std::current_exception();
            stop = true;
            rowsReady.notify_one();
        }
    });

    const auto stopAndJoin = [&] {
        {
            std::lock_guard<std::mutex> lock(mutex);
            stop = true;
            slotsFree.notify_one();
        }
        worker.join();
    };
    bool accepted = true;
    try {
        for (int y = 0; y < rows && accepted; ++y) {
            {
                std::unique_lock<std::mutex> lock(mutex);
                if (produced == y) {
                    consumerWantsProduced = std::min(rows, y + batch);
                    rowsReady.wait(lock, [&] { return produced >= consumerWantsProduced || error; });
                    consumerWantsProduced = 0;
                }
                if (error) break;
            }
            accepted = consume(RowOf<Kind>{slot(y)});
            std::lock_guard<std::mutex> lock(mutex);
            ++consumed;
            if (workerWantsConsumed != 0 && consumed >= workerWantsConsumed) slotsFree.notify_one();
        }
    } catch (...) {
        stopAndJoin();
        throw;
    }
    stopAndJoin();
    if (error) std::rethrow_exception(error);
    return accepted;
}

template bool streamRows(FullFrameRowSource&, const std::function<void(uint16_t*)>&,
                         const RowConsumer<RowKind::FullFrame>::type&);
template bool streamRows(LineRepeatRowSource&, const std::function<void(uint16_t*)>&,
                         const RowConsumer<RowKind::LineRepeat>::type&);
template bool streamRows(DeviceFileRowSource&, const std::function<void(uint16_t*)>&,
                         const RowConsumer<RowKind::DeviceFile>::type&);
