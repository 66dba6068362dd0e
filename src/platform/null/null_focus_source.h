#pragma once

#include "monitors/focus_source.h"

namespace tappix {

/// A focus source for a session where no window can be seen: nothing is ever in front,
/// and the views say why.
class NullFocusSource final : public FocusSource {
public:
    /// Stands in, giving `reason` to the user.
    explicit NullFocusSource(QString reason) : reason_(std::move(reason)) {}

    /// The reason given at construction. Main thread.
    QString unavailableReason() const override { return reason_; }
    /// None. Main thread.
    std::vector<AppIdentity> runningApps() override { return {}; }
    /// The id as its own name. Main thread.
    AppIdentity describe(const QString& id) const override { return {id, id, {}}; }

private:
    QString reason_;
};

} // namespace tappix
