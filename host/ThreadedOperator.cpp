#include "host/ThreadedOperator.h"

#include "host/WorkerPool.h"

const FuID ThreadedOperator::ClassID("ThreadedOperator");

void ThreadedOperator::DoMultiProcess(Request* req, std::int32_t chunks)
{
    WorkerPool::Shared().Run(chunks, [&](int k) { ProcessChunk(req, k); }, req->CancelFlag());
}

void ThreadedOperator::ProcessChunk(Request*, std::int32_t) {}
