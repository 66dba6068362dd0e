#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>
#include <functional>
#include <optional>

namespace tappix {

/// Fetches a small document over the network without blocking. The platform's HTTPS
/// client implements it; tests stand in with canned answers.
class FeedFetcher {
public:
    /// The body, or none with a plain-words reason.
    using Done = std::function<void(std::optional<QByteArray> body, QString error)>;

    virtual ~FeedFetcher() = default;

    /// Starts fetching `url` and calls `done` once, on the main thread, later.
    /// Main thread.
    virtual void fetch(const QUrl& url, Done done) = 0;
};

} // namespace tappix
