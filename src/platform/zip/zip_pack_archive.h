#pragma once

#include "kits/pack_source.h"

#include <memory>

struct zip;

namespace tappix {

/// A pack shared as a .zip file, read with libzip without unpacking it. The root is
/// the folder of the shallowest `config.json` (packs are often zipped inside a
/// folder). Entries are only ever read, never extracted by their own names: an
/// entry that would leave the pack (`../`, an absolute path) or is a link is
/// reported and never read, and no entry yields more bytes than asked for, however
/// small its header says it is.
class ZipPackArchive final : public PackSource {
public:
    /// Most entries an archive may list; more is not a sound pack.
    static constexpr qint64 kMaxEntries = 20000;

    /// Opens the archive at `path`; null, with the reason in `error`, when it is not
    /// a readable zip file holding a pack.
    static std::unique_ptr<ZipPackArchive> open(const QString& path, std::string& error);
    ~ZipPackArchive() override;

    QString displayName() const override;
    std::vector<std::string> problems() const override { return problems_; }
    std::optional<QByteArray> read(const QString& name, qint64 maxBytes,
                                   std::string& error) override;

private:
    ZipPackArchive(zip* archive, QString path) : archive_(archive), path_(std::move(path)) {}
    bool isLink(qint64 index) const;

    zip* archive_;
    QString path_;
    QString root_;
    std::vector<std::string> problems_;
};

} // namespace tappix
