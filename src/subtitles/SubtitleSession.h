#pragma once
// The subtitle tracks the player renders itself (loaded files, files found beside the video,
// embedded text tracks), which one is shown, and the playback clock the overlay draws against:
// the player's 0.2 s position snapshots, extrapolated with the rate in between.
#include "SubtitleDocument.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

#include <functional>
#include <memory>

namespace quorvane {

class DiagnosticLog;

struct SubtitleTrackInfo {
    qint64 id = 0;
    QString label;
    bool forced = false;
};

class SubtitleSession : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("The player owns its subtitle session")
    // 0 while no track of this session is shown.
    Q_PROPERTY(qint64 activeID READ activeID NOTIFY activeChanged FINAL)

public:
    // Seconds on a monotonic scale.
    using Clock = std::function<double()>;
    // Our ids start here so that they never meet the backends' own subtitle ids (1, 2, …).
    static constexpr qint64 kFirstID = 1001;

    explicit SubtitleSession(QObject* parent = nullptr);
    ~SubtitleSession() override;

    void setClock(Clock clock) { m_clock = std::move(clock); }
    void setDiagnosticLog(DiagnosticLog* log) { m_log = log; }

    // A file read when it is first selected. Returns its id.
    qint64 addFile(const QString& path, const QString& label);
    // Reads and parses a subtitle file on a worker thread, so that a large file never stalls the
    // window; `done` runs on this object's thread, unless the tracks were cleared meanwhile (a
    // new item opened), in which case the result is dropped.
    void read(const QString& path, std::function<void(SubtitleParse)> done);
    // A track already in memory (an embedded one).
    qint64 addDocument(SubtitleDocument document, const QString& label, bool forced = false);
    // Adds events to a track already in memory (an embedded track whose events arrive while the
    // file plays), and fonts for it; documentChanged tells the overlay.
    void appendEvents(qint64 id, const QList<SubtitleEvent>& events);
    void addFonts(qint64 id, const QList<SubtitleFont>& fonts);
    // Drops every track (a new item opens).
    void clear();

    QList<SubtitleTrackInfo> tracks() const;
    bool owns(qint64 id) const;
    // Shows the track; 0 shows none. A file not read yet is read in the background and shown
    // once it is ready (activeChanged), unless another track was selected meanwhile; one that
    // cannot be read stays off, with the failure in the diagnostic log. False for an unknown id.
    bool select(qint64 id);
    qint64 activeID() const { return m_activeID; }
    // The shown track's document; null while none is shown.
    std::shared_ptr<const SubtitleDocument> activeDocument() const;

    // The latest position snapshot (seconds) and the rate it advances at (0 while paused).
    void setTiming(double position, double rate);
    // Now, in seconds of media time.
    double currentTime() const;
    double rate() const { return m_rate; }

signals:
    void activeChanged();
    // A jump the extrapolation cannot foresee: a seek, a pause, a new rate.
    void timingChanged();
    // The track's document grew: events from index `firstNew` on were appended, or with -1
    // something else changed (fonts) and it must be loaded again.
    void documentChanged(qint64 id, qsizetype firstNew);

private:
    struct Track {
        SubtitleTrackInfo info;
        QString path;
        std::shared_ptr<const SubtitleDocument> document;
    };
    Track* find(qint64 id);
    void note(const QString& event, const QString& reason);
    void show(qint64 id);

    Clock m_clock;
    DiagnosticLog* m_log = nullptr;
    QList<Track> m_tracks;
    qint64 m_nextID = kFirstID;
    qint64 m_activeID = 0;
    qint64 m_pendingID = 0;   // a file track being read to be shown
    quint64 m_generation = 0; // counts clear(): reads begun before are stale
    double m_anchorPosition = 0;
    double m_anchorTime = 0;
    double m_rate = 0;
};

} // namespace quorvane
