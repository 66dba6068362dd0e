#pragma once

#include "kits/pack_source.h"

#include <memory>

namespace tappix {

/// A pack unpacked in a directory. Its root is the directory itself when it holds
/// `config.json`, else its one subdirectory that does (packs are often shared as a
/// folder inside a folder). Links are never followed, so a pack cannot reach files
/// outside its root.
class PackDirectory final : public PackSource {
public:
    /// Opens `path`; null, with the reason in `error`, when no pack is there.
    static std::unique_ptr<PackDirectory> open(const QString& path, std::string& error);

    QString displayName() const override;
    std::optional<QByteArray> read(const QString& name, qint64 maxBytes,
                                   std::string& error) override;

    /// The pack's root directory.
    const QString& root() const { return root_; }

private:
    PackDirectory(QString path, QString root) : path_(std::move(path)), root_(std::move(root)) {}

    QString path_;
    QString root_;
};

} // namespace tappix
