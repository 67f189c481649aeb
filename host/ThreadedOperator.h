#pragma once
// A tool whose render is split into chunks that the host runs on its workers.
#include "host/Operator.h"

#include <cstdint>

class ThreadedOperator : public Operator {
public:
    using Operator::Operator;

    // The class ID of this base, for a tool's registry entry (REGP_BaseClassID).
    static const FuID ClassID;

    // Runs ProcessChunk(req, 0 .. chunks - 1) on the host's worker pool and
    // returns when all have finished. Once the request is cancelled no further
    // chunk starts: a tool asks req->IsCancelled() before it uses their work.
    void DoMultiProcess(Request* req, std::int32_t chunks);
    virtual void ProcessChunk(Request* req, std::int32_t chunk);
};
