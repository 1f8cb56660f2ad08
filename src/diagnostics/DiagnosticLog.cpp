#include "DiagnosticLog.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QSaveFile>
#include <QStringList>

#include <algorithm>
#include <cmath>
#include <optional>

Q_LOGGING_CATEGORY(lcDiagnostics, "quorvane.diagnostics")

namespace quorvane {

namespace {

constexpr qsizetype kMaxEntries = 200;
constexpr qint64 kMaxAgeSeconds = 604800;
constexpr qsizetype kMaxFields = 12;
constexpr qint64 kMaxFileBytes = 65536;
constexpr qsizetype kMaxReportLength = 3501;
constexpr qint64 kDuplicateWindowMs = 1000;

// Times in the file count seconds from 2001-01-01T00:00:00Z, so files written by other builds of
// the player read the same.
constexpr qint64 kReferenceEpochMs = 978307200000;

double toReferenceSeconds(const QDateTime& time)
{
    return double(time.toMSecsSinceEpoch() - kReferenceEpochMs) / 1000.0;
}

std::optional<QDateTime> fromReferenceSeconds(double seconds)
{
    // Far outside any plausible date the millisecond count would overflow; such a file is corrupt.
    if (!std::isfinite(seconds) || std::abs(seconds) > 1.0e12) return std::nullopt;
    const auto ms = qint64(std::llround(seconds * 1000.0)) + kReferenceEpochMs;
    return QDateTime::fromMSecsSinceEpoch(ms, Qt::UTC);
}

DiagnosticLog::Fields safeFields(const DiagnosticLog::Fields& fields)
{
    DiagnosticLog::Fields kept;
    // QMap iterates in ascending key order, which decides which 12 pairs survive.
    for (auto it = fields.cbegin(); it != fields.cend() && kept.size() < kMaxFields; ++it) {
        if (DiagnosticLog::isSafe(it.key()) && DiagnosticLog::isSafe(it.value()))
            kept.insert(it.key(), it.value());
    }
    return kept;
}

QString joinFields(const DiagnosticLog::Fields& fields)
{
    QStringList pairs;
    pairs.reserve(fields.size());
    for (auto it = fields.cbegin(); it != fields.cend(); ++it)
        pairs.append(it.key() + QLatin1Char('=') + it.value());
    return pairs.join(QLatin1Char(' '));
}

QByteArray encode(const QList<DiagnosticLog::Entry>& entries)
{
    QJsonArray array;
    for (const auto& entry : entries) {
        QJsonObject fields;
        for (auto it = entry.fields.cbegin(); it != entry.fields.cend(); ++it)
            fields.insert(it.key(), it.value());
        array.append(QJsonObject{{QStringLiteral("time"), toReferenceSeconds(entry.time)},
                                 {QStringLiteral("event"), entry.event},
                                 {QStringLiteral("fields"), fields}});
    }
    return QJsonDocument(array).toJson(QJsonDocument::Compact);
}

// The whole array must decode; one malformed entry makes the file corrupt.
std::optional<QList<DiagnosticLog::Entry>> decode(const QByteArray& data)
{
    QJsonParseError error;
    const auto document = QJsonDocument::fromJson(data, &error);
    if (error.error != QJsonParseError::NoError || !document.isArray()) return std::nullopt;
    QList<DiagnosticLog::Entry> entries;
    for (const auto& value : document.array()) {
        if (!value.isObject()) return std::nullopt;
        const auto object = value.toObject();
        const auto time = object.value(QLatin1String("time"));
        const auto event = object.value(QLatin1String("event"));
        const auto fields = object.value(QLatin1String("fields"));
        if (!time.isDouble() || !event.isString() || !fields.isObject()) return std::nullopt;
        const auto date = fromReferenceSeconds(time.toDouble());
        if (!date) return std::nullopt;
        DiagnosticLog::Entry entry{*date, event.toString(), {}};
        const auto fieldObject = fields.toObject();
        for (auto it = fieldObject.begin(); it != fieldObject.end(); ++it) {
            if (!it.value().isString()) return std::nullopt;
            entry.fields.insert(it.key(), it.value().toString());
        }
        entries.append(entry);
    }
    return entries;
}

// Creates each missing directory of `path` private to the user; existing ones are left alone.
bool makePrivatePath(const QString& path)
{
    const QString clean = QDir::cleanPath(QDir(path).absolutePath());
    if (QFileInfo(clean).isDir()) return true;
    const QString parent = QFileInfo(clean).path();
    if (parent != clean && !makePrivatePath(parent)) return false;
    const auto permissions = QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                             QFileDevice::ExeOwner | QFileDevice::ReadUser |
                             QFileDevice::WriteUser | QFileDevice::ExeUser;
    return QDir().mkdir(clean, permissions) || QFileInfo(clean).isDir();
}

} // namespace

DiagnosticLog::DiagnosticLog(const QString& filePath)
    : DiagnosticLog(filePath, [] { return QDateTime::currentDateTimeUtc(); })
{
}

DiagnosticLog::DiagnosticLog(const QString& filePath, Clock clock)
    : m_clock(std::move(clock)), m_filePath(filePath)
{
    load();
}

bool DiagnosticLog::isSafe(const QString& text)
{
    if (text.isEmpty() || text.size() > 64) return false;
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        const bool ok = (u >= u'a' && u <= u'z') || (u >= u'A' && u <= u'Z') ||
                        (u >= u'0' && u <= u'9') || u == u'_' || u == u'.' || u == u':' ||
                        u == u'+' || u == u'-';
        if (!ok) return false;
    }
    return true;
}

void DiagnosticLog::load()
{
    if (m_filePath.isEmpty()) return;
    QFile file(m_filePath);
    if (!file.exists()) return;
    if (file.size() > kMaxFileBytes) {
        qCInfo(lcDiagnostics) << "ignoring an oversized diagnostic log";
        return;
    }
    if (!file.open(QIODevice::ReadOnly)) return;
    // Read at most one byte beyond the cap, in case the file grew after the size check.
    const QByteArray data = file.read(kMaxFileBytes + 1);
    if (data.size() > kMaxFileBytes) return;
    const auto decoded = decode(data);
    if (!decoded) {
        qCInfo(lcDiagnostics) << "ignoring a corrupt diagnostic log";
        return;
    }
    const QDateTime oldest = m_clock().addSecs(-kMaxAgeSeconds);
    for (const auto& entry : decoded->mid(std::max<qsizetype>(0, decoded->size() - kMaxEntries))) {
        if (isSafe(entry.event) && entry.time > oldest)
            m_entries.append({entry.time, entry.event, safeFields(entry.fields)});
    }
}

void DiagnosticLog::record(const QString& event, const Fields& fields)
{
    if (!isSafe(event)) return;
    QMutexLocker locker(&m_lock);
    const QDateTime now = m_clock();
    const Fields safe = safeFields(fields);

    const QDateTime oldest = now.addSecs(-kMaxAgeSeconds);
    m_entries.removeIf([&](const Entry& entry) { return entry.time < oldest; });

    if (!m_entries.isEmpty()) {
        const Entry& newest = m_entries.constLast();
        if (newest.event == event && newest.fields == safe &&
            newest.time.msecsTo(now) < kDuplicateWindowMs)
            return;
    }
    m_entries.append({now, event, safe});
    if (m_entries.size() > kMaxEntries) m_entries.remove(0, m_entries.size() - kMaxEntries);

    if (!m_filePath.isEmpty()) {
        const bool failed = !store();
        // Said once when storage breaks, not at every event after it.
        if (failed && !m_storageFailed)
            qCWarning(lcDiagnostics) << "cannot store the diagnostic log at" << m_filePath;
        m_storageFailed = failed;
    }
}

bool DiagnosticLog::store()
{
    QByteArray data = encode(m_entries);
    while (data.size() > kMaxFileBytes && !m_entries.isEmpty()) {
        m_entries.removeFirst();
        data = encode(m_entries);
    }
    if (!makePrivatePath(QFileInfo(m_filePath).path())) return false;
    QSaveFile file(m_filePath);
    if (!file.open(QIODevice::WriteOnly) || file.write(data) != data.size() || !file.commit())
        return false;
    return QFile::setPermissions(m_filePath, QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                                 QFileDevice::ReadUser | QFileDevice::WriteUser);
}

QString DiagnosticLog::report(const Fields& metadata) const
{
    QMutexLocker locker(&m_lock);
    // The layout is fixed even when parts are empty, so tools reading reports can split on spaces.
    const QString header = QStringLiteral("Diagnostics v1 ") + joinFields(safeFields(metadata)) +
                           QStringLiteral(" storage=") +
                           (m_storageFailed ? QStringLiteral("unavailable") : QStringLiteral("ok"));

    const QDateTime oldest = m_clock().addSecs(-kMaxAgeSeconds);
    QStringList lines;
    for (const auto& entry : m_entries) {
        if (entry.time <= oldest) continue;
        lines.append(entry.time.toUTC().toString(Qt::ISODate) + QLatin1Char(' ') + entry.event +
                     QLatin1Char(' ') + joinFields(entry.fields));
    }

    // header + "\n" + lines joined by "\n"; drop the oldest lines until it is short enough.
    qsizetype length = header.size() + 1;
    for (const auto& line : lines)
        length += line.size();
    length += std::max<qsizetype>(0, lines.size() - 1);
    qsizetype first = 0;
    while (length >= kMaxReportLength && first < lines.size()) {
        length -= lines[first].size() + (lines.size() - first > 1 ? 1 : 0);
        ++first;
    }
    return header + QLatin1Char('\n') + lines.mid(first).join(QLatin1Char('\n'));
}

QList<DiagnosticLog::Entry> DiagnosticLog::entries() const
{
    QMutexLocker locker(&m_lock);
    return m_entries;
}

bool DiagnosticLog::storageFailed() const
{
    QMutexLocker locker(&m_lock);
    return m_storageFailed;
}

} // namespace quorvane
