// The preferences file, read by the settings store with every typed and JSON-valued key.
#include "core/scheduler.h"
#include "fuzz_support.h"
#include "settings/json_file_preferences.h"
#include "settings/settings_store.h"

#include <QCoreApplication>
#include <QTemporaryDir>

namespace {

/// Nothing waits in a fuzz run: scheduled writes are dropped (the destructors sync).
class NoScheduler final : public tappix::Scheduler {
public:
    TaskId schedule(std::chrono::milliseconds, std::function<void()>) override { return ++last_; }
    void cancel(TaskId) override {}

private:
    TaskId last_ = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static int argc = 1;
    static char name[] = "fuzz_preferences";
    static char* argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
    static QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("preferences.json"));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return 0;
    file.write(reinterpret_cast<const char*>(data), static_cast<qint64>(size));
    file.close();
    NoScheduler scheduler;
    tappix::JsonFilePreferences preferences(path, scheduler);
    tappix::SettingsStore settings(preferences, scheduler);
    // A file set aside as corrupt must not pile up over millions of runs.
    if (!preferences.keptAsidePath().isEmpty())
        QFile::remove(preferences.keptAsidePath());
    return 0;
}
