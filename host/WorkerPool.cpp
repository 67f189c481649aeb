#include "host/WorkerPool.h"

#include "host/EngineSettings.h"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <string>

struct WorkerPool::Batch {
    const std::function<void(int)>* job = nullptr;
    const std::atomic<bool>* cancel = nullptr;
    int count = 0;
    int next = 0;
    int done = 0;
    std::exception_ptr error;
    std::condition_variable finished;
};

WorkerPool::WorkerPool(unsigned threads)
{
    for (unsigned i = 0; i < std::max(1u, threads); ++i) m_threads.emplace_back([this] { WorkerLoop(); });
}

WorkerPool::~WorkerPool()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_wake.notify_all();
    for (std::thread& t : m_threads) t.join();
}

void WorkerPool::Run(int count, const std::function<void(int)>& job, const std::atomic<bool>* cancel)
{
    if (count <= 0) return;
    Batch batch;
    batch.job = &job;
    batch.cancel = cancel;
    batch.count = count;
    std::unique_lock<std::mutex> lock(m_mutex);
    m_batches.push_back(&batch);
    m_wake.notify_all();
    batch.finished.wait(lock, [&] { return batch.done == batch.count; });
    if (batch.error) std::rethrow_exception(batch.error);
}

void WorkerPool::WorkerLoop()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_wake.wait(lock, [&] { return m_stop || !m_batches.empty(); });
        if (m_batches.empty()) return;  // stopping with nothing left to do
        Batch* batch = m_batches.front();
        const int k = batch->next++;
        if (batch->next == batch->count) m_batches.erase(m_batches.begin());
        lock.unlock();
        std::exception_ptr error;
        try {
            if (!batch->cancel || !batch->cancel->load(std::memory_order_relaxed)) (*batch->job)(k);
        } catch (...) {
            error = std::current_exception();
        }
        lock.lock();
        if (error && !batch->error) batch->error = error;
        if (++batch->done == batch->count) batch->finished.notify_all();
    }
}

WorkerPool& WorkerPool::Shared()
{
    // Made at the first render with the threads set then; later changes of the
    // setting do not resize it.
    static WorkerPool pool(EngineThreads());
    return pool;
}
