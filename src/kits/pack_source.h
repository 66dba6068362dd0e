#pragma once

#include <QByteArray>
#include <QString>
#include <optional>
#include <string>
#include <vector>

namespace tappix {

/// Where the pack importer reads a pack from: a directory or an archive. Names are
/// relative to the pack's root, the folder that holds its `config.json`, with "/"
/// between folders. A source never hands out a file outside that root, a link, or
/// more bytes than asked for. Used from one thread at a time.
class PackSource {
public:
    virtual ~PackSource() = default;

    /// The pack's file or directory name, for messages and the kit's record of
    /// where it came from.
    virtual QString displayName() const = 0;

    /// What was wrong with the source as a whole but did not stop it opening (archive
    /// entries that leave the pack, links), one line each.
    virtual std::vector<std::string> problems() const { return {}; }

    /// The bytes of the pack's file `name`. None, with a plain-words reason in `error`,
    /// when it is missing, not a regular file, or larger than `maxBytes`.
    virtual std::optional<QByteArray> read(const QString& name, qint64 maxBytes,
                                           std::string& error) = 0;
};

} // namespace tappix
