#include "monitors/focus_source.h"

namespace tappix {

bool FocusSource::matches(const FocusedWindow& window, const QStringList& ids) {
    for (const QString& id : ids) {
        if (id.isEmpty())
            continue;
        if (id.compare(window.app.id, Qt::CaseInsensitive) == 0)
            return true;
        for (const QString& name : window.classes)
            if (id.compare(name, Qt::CaseInsensitive) == 0)
                return true;
    }
    return false;
}

void FocusSource::report(std::optional<FocusedWindow> window) {
    if (window && !window->ownWindow && !window->app.id.isEmpty() && lastOtherApp_ != window->app) {
        lastOtherApp_ = window->app;
        Q_EMIT lastOtherAppChanged();
    }
    if (window == focused_)
        return;
    focused_ = std::move(window);
    Q_EMIT focusChanged();
}

} // namespace tappix
