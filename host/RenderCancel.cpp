#include "host/RenderCancel.h"

RenderCancel::Change::Change(RenderCancel& cancel) : m_cancel(cancel)
{
    std::lock_guard<std::mutex> lock(m_cancel.m_mutex);
    ++m_cancel.m_waiting;
    m_cancel.m_flag.store(true, std::memory_order_relaxed);
}

RenderCancel::Change::~Change()
{
    std::lock_guard<std::mutex> lock(m_cancel.m_mutex);
    --m_cancel.m_waiting;
}

bool RenderCancel::Begin()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_waiting > 0) return false;
    m_flag.store(false, std::memory_order_relaxed);
    return true;
}
