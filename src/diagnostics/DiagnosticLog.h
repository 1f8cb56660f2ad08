#pragma once
// A short, privacy-safe history of technical events. Only identifier-like texts are stored (see
// isSafe), so names, paths and free text never reach it. Thread-safe; persists to a JSON file.
#include <QDateTime>
#include <QList>
#include <QMap>
#include <QMutex>
#include <QString>

#include <functional>

namespace quorvane {

class DiagnosticLog {
public:
    using Fields = QMap<QString, QString>;
    struct Entry {
        QDateTime time;
        QString event;
        Fields fields;
        bool operator==(const Entry&) const = default;
    };

    // Where "now" comes from; tests hand in their own clock to step through time.
    using Clock = std::function<QDateTime()>;

    // An empty path keeps the log in memory only. A missing, oversized or corrupt file starts an
    // empty log.
    explicit DiagnosticLog(const QString& filePath = {});
    DiagnosticLog(const QString& filePath, Clock clock);

    // Adds one event; unsafe names are ignored, unsafe field pairs dropped. Any thread.
    void record(const QString& event, const Fields& fields = {});
    // The plain-text report of the last 7 days, beginning "Diagnostics v1 ". Any thread.
    QString report(const Fields& metadata) const;

    QList<Entry> entries() const;
    bool storageFailed() const;
    QString filePath() const { return m_filePath; }

    // 1 to 64 characters of [A-Za-z0-9_.:+-].
    static bool isSafe(const QString& text);

private:
    void load();
    bool store();

    mutable QMutex m_lock;
    Clock m_clock;
    QString m_filePath;
    QList<Entry> m_entries;
    bool m_storageFailed = false;
};

namespace SupportDiagnostics {
// The shared log, created on first use under the user's data directory.
DiagnosticLog& log();
// The shared log's report with the application's standard metadata.
QString report();
// app, version, build, os, arch.
DiagnosticLog::Fields metadata();
} // namespace SupportDiagnostics

} // namespace quorvane
