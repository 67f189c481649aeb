#include "host/Object.h"

#include "host/Tags.h"

void Object::Recycle()
{
    if (m_refs.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

void Object::SetAttrs(const TagList& tags)
{
    if (const TagItem* label = tags.Find(LINKS_Name)) m_label = std::get<std::string>(label->value());
    if (const TagItem* vis = tags.Find(IC_Visible)) m_visible = std::get<std::int64_t>(vis->value()) != 0;
}
