#include "platform/network/https_feed_fetcher.h"

#include "core/log.h"

#include <QNetworkReply>
#include <QSslConfiguration>
#include <memory>

namespace tappix {

HttpsFeedFetcher::HttpsFeedFetcher(QList<QSslCertificate> extraAuthorities, int timeoutMs)
    : extraAuthorities_(std::move(extraAuthorities)), timeoutMs_(timeoutMs) {
    network_.setRedirectPolicy(QNetworkRequest::NoLessSafeRedirectPolicy);
}

QList<QSslCertificate> HttpsFeedFetcher::authoritiesFromEnvironment() {
    const QString path = qEnvironmentVariable("SSL_CERT_FILE");
    if (path.isEmpty())
        return {};
    const QList<QSslCertificate> authorities = QSslCertificate::fromPath(path, QSsl::Pem);
    if (authorities.isEmpty())
        qCWarning(lcApp, "SSL_CERT_FILE names %s, which holds no certificate", qPrintable(path));
    return authorities;
}

void HttpsFeedFetcher::fetch(const QUrl& url, Done done) {
    QNetworkRequest request(url);
    request.setTransferTimeout(timeoutMs_);
    request.setHeader(QNetworkRequest::UserAgentHeader,
                      QStringLiteral("Tappix/%1").arg(QStringLiteral(TAPPIX_VERSION)));
    if (!extraAuthorities_.isEmpty()) {
        QSslConfiguration ssl = QSslConfiguration::defaultConfiguration();
        ssl.addCaCertificates(extraAuthorities_);
        request.setSslConfiguration(ssl);
    }
    QNetworkReply* reply = network_.get(request);
    auto answered = std::make_shared<bool>(false);
    auto finish = [reply, done, answered](std::optional<QByteArray> body, QString error) {
        if (*answered)
            return;
        *answered = true;
        reply->deleteLater();
        done(std::move(body), std::move(error));
    };
    QObject::connect(reply, &QNetworkReply::downloadProgress, reply,
                     [reply, finish](qint64 received, qint64) {
                         if (received > kMaxBytes) {
                             // Answered before aborting: an aborted reply otherwise reads as
                             // one that ran out of time.
                             finish(std::nullopt, QStringLiteral("the feed is larger than 1 MB"));
                             reply->abort();
                         }
                     });
    const int timeoutMs = timeoutMs_;
    QObject::connect(reply, &QNetworkReply::finished, reply, [reply, finish, timeoutMs] {
        // The size check answers before it aborts, so a reply cancelled by the time it
        // gets here ran out of time.
        if (reply->error() == QNetworkReply::OperationCanceledError ||
            reply->error() == QNetworkReply::TimeoutError) {
            finish(std::nullopt, QStringLiteral("the server sent nothing for %1 s")
                                     .arg(QString::number(timeoutMs / 1000.0, 'g', 3)));
            return;
        }
        // A server that answered says so by its status, not by Qt's long sentence with the
        // address in it.
        const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        if (reply->error() != QNetworkReply::NoError && status == 0) {
            finish(std::nullopt, reply->errorString());
            return;
        }
        if (status != 200) {
            finish(std::nullopt, QStringLiteral("the server answered %1").arg(status));
            return;
        }
        finish(reply->readAll(), {});
    });
}

} // namespace tappix
