#pragma once
// A fixed set of worker threads that runs batches of jobs. One batch runs at a
// time per caller; Run blocks until every job of the batch has finished.
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

class WorkerPool {
public:
    explicit WorkerPool(unsigned threads);
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    unsigned ThreadCount() const { return static_cast<unsigned>(m_threads.size()); }
    // Runs job(0) .. job(count - 1) on the workers. An exception thrown by a
    // job is passed on after the whole batch has finished (the first one wins).
    // Once `cancel` is raised no further job starts; those running finish.
    void Run(int count, const std::function<void(int)>& job, const std::atomic<bool>* cancel = nullptr);

    // The host's pool: LUMIVANE_THREADS threads, or one per core.
    static WorkerPool& Shared();

private:
    struct Batch;
    void WorkerLoop();

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::vector<Batch*> m_batches;
    bool m_stop = false;
    std::vector<std::thread> m_threads;
};
