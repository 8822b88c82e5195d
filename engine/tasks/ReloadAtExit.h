#pragma once

#include "DocumentView.h"

// Posts the file table's reload when a task ends, however it ends (also
// after an exception), without waiting for the front end.
class ReloadAtExit {
public:
    explicit ReloadAtExit(DocumentView& view) : m_view(view) {}
    ~ReloadAtExit() { m_view.reloadTable(false); }
    ReloadAtExit(const ReloadAtExit&) = delete;
    ReloadAtExit& operator=(const ReloadAtExit&) = delete;

private:
    DocumentView& m_view;
};
