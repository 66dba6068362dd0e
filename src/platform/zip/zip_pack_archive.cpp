#include "platform/zip/zip_pack_archive.h"

#include <QFile>
#include <QFileInfo>
#include <cstring>
#include <sys/stat.h>
#include <zip.h>

namespace tappix {
namespace {

// Problems with entries are listed one per line, up to this many.
constexpr std::size_t kMaxListed = 20;

bool leavesPack(const QString& name) {
    if (name.startsWith(QLatin1Char('/')) || name.startsWith(QLatin1Char('\\')) ||
        (name.size() > 1 && name[1] == QLatin1Char(':')))
        return true;
    for (const QString& part :
         QString(name).replace(QLatin1Char('\\'), QLatin1Char('/')).split(QLatin1Char('/'))) {
        if (part == QLatin1String(".."))
            return true;
    }
    return false;
}

// Files macOS adds to archives it makes: never part of a pack.
bool isMacMetadata(const QString& name) {
    return name.startsWith(QLatin1String("__MACOSX/")) ||
           QFileInfo(name).fileName().startsWith(QLatin1String("._"));
}

} // namespace

std::unique_ptr<ZipPackArchive> ZipPackArchive::open(const QString& path, std::string& error) {
    int code = 0;
    zip* archive = zip_open(QFile::encodeName(path).constData(), ZIP_RDONLY, &code);
    if (!archive) {
        zip_error_t failure;
        zip_error_init_with_code(&failure, code);
        error = std::string("not a readable zip file (") + zip_error_strerror(&failure) + ")";
        zip_error_fini(&failure);
        return nullptr;
    }
    std::unique_ptr<ZipPackArchive> pack(new ZipPackArchive(archive, path));
    const zip_int64_t count = zip_get_num_entries(archive, 0);
    if (count > kMaxEntries) {
        error = "the archive lists " + std::to_string(count) +
                " entries; a sound pack has far "
                "fewer";
        return nullptr;
    }
    std::size_t bad = 0;
    int rootDepth = -1;
    bool twoRoots = false;
    for (zip_int64_t index = 0; index < count; ++index) {
        const char* raw = zip_get_name(archive, static_cast<zip_uint64_t>(index), ZIP_FL_ENC_GUESS);
        if (!raw)
            continue;
        const QString name = QString::fromUtf8(raw);
        if (isMacMetadata(name))
            continue;
        const bool leaves = leavesPack(name);
        if (leaves || pack->isLink(index)) {
            if (++bad <= kMaxListed)
                pack->problems_.push_back("archive entry \"" + name.toStdString() + "\" " +
                                          (leaves ? "leaves the pack" : "is a link") + "; ignored");
            continue;
        }
        if (name != QLatin1String("config.json") && !name.endsWith(QLatin1String("/config.json")))
            continue;
        const int depth = static_cast<int>(name.count(QLatin1Char('/')));
        if (rootDepth < 0 || depth < rootDepth) {
            rootDepth = depth;
            pack->root_ =
                name.left(name.size() - static_cast<qsizetype>(std::strlen("config.json")));
            twoRoots = false;
        } else if (depth == rootDepth) {
            twoRoots = true;
        }
    }
    if (bad > kMaxListed)
        pack->problems_.push_back(std::to_string(bad - kMaxListed) +
                                  " more archive entries leave the pack or are links; ignored");
    if (rootDepth < 0) {
        error = "no config.json in the archive";
        return nullptr;
    }
    if (twoRoots) {
        error = "the archive holds several packs; import them one at a time";
        return nullptr;
    }
    return pack;
}

ZipPackArchive::~ZipPackArchive() {
    zip_discard(archive_);
}

QString ZipPackArchive::displayName() const {
    return QFileInfo(path_).fileName();
}

bool ZipPackArchive::isLink(qint64 index) const {
    zip_uint8_t system = 0;
    zip_uint32_t attributes = 0;
    if (zip_file_get_external_attributes(archive_, static_cast<zip_uint64_t>(index), 0, &system,
                                         &attributes) != 0)
        return false;
    return system == ZIP_OPSYS_UNIX && S_ISLNK(attributes >> 16);
}

std::optional<QByteArray> ZipPackArchive::read(const QString& name, qint64 maxBytes,
                                               std::string& error) {
    const QByteArray full = (root_ + name).toUtf8();
    zip_int64_t index = zip_name_locate(archive_, full.constData(), ZIP_FL_ENC_GUESS);
    // Packs made on case-insensitive systems often spell names differently.
    if (index < 0)
        index = zip_name_locate(archive_, full.constData(), ZIP_FL_ENC_GUESS | ZIP_FL_NOCASE);
    if (index < 0 || leavesPack(root_ + name)) {
        error = "no such file in the archive";
        return std::nullopt;
    }
    if (isLink(index)) {
        error = "is a link; links are not followed";
        return std::nullopt;
    }
    zip_file_t* file = zip_fopen_index(archive_, static_cast<zip_uint64_t>(index), 0);
    if (!file) {
        error = std::string("cannot read it from the archive (") +
                zip_error_strerror(zip_get_error(archive_)) + ")";
        return std::nullopt;
    }
    // Read by the bytes that really come out, never by the size the header claims.
    QByteArray bytes;
    char chunk[64 * 1024];
    bool tooLarge = false;
    for (;;) {
        const zip_int64_t got = zip_fread(file, chunk, sizeof chunk);
        if (got < 0) {
            error = std::string("the archive is damaged here (") +
                    zip_error_strerror(zip_file_get_error(file)) + ")";
            zip_fclose(file);
            return std::nullopt;
        }
        if (got == 0)
            break;
        if (bytes.size() + got > maxBytes) {
            tooLarge = true;
            break;
        }
        bytes.append(chunk, static_cast<qsizetype>(got));
    }
    zip_fclose(file);
    if (tooLarge) {
        error = "unpacks to more than " + std::to_string(maxBytes / (1024 * 1024)) + " MiB";
        return std::nullopt;
    }
    return bytes;
}

} // namespace tappix
