#pragma once

#include "monitors/feed_fetcher.h"

#include <QList>
#include <QNetworkAccessManager>
#include <QSslCertificate>

namespace tappix {

/// Fetches feeds over HTTPS with Qt Network: certificates checked against the
/// system's authorities (plus any given, for tests), at most `kMaxBytes`, given up
/// after `kTimeoutMs` (or the timeout given) without progress. Redirects are followed
/// only to HTTPS. Main thread only.
class HttpsFeedFetcher final : public FeedFetcher {
public:
    /// Larger answers are not a feed.
    static constexpr qint64 kMaxBytes = 1 << 20;
    /// A feed that has not arrived by then never will.
    static constexpr int kTimeoutMs = 20000;

    /// A fetcher trusting the system's authorities and `extraAuthorities`, giving up on
    /// a server silent for `timeoutMs`.
    explicit HttpsFeedFetcher(QList<QSslCertificate> extraAuthorities = {},
                              int timeoutMs = kTimeoutMs);

    void fetch(const QUrl& url, Done done) override;

    /// The authorities in the PEM file that `SSL_CERT_FILE` names, as OpenSSL's own
    /// programs trust them (a company's intercepting proxy, a local test server); none
    /// when it is unset, and a log line when it names nothing readable.
    static QList<QSslCertificate> authoritiesFromEnvironment();

private:
    QNetworkAccessManager network_;
    QList<QSslCertificate> extraAuthorities_;
    int timeoutMs_;
};

} // namespace tappix
