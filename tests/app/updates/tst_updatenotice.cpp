// What a launch shows for what an earlier launch stored, and what the updater's answers change.
#include "UpdateNotice.h"

#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <functional>
#include <optional>

using namespace quorvane;
using namespace Qt::StringLiterals;

class UpdateNoticeTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;

private slots:
    // What a launch shows for what an earlier launch stored, then what the updater's answer
    // changes (a row without an action only checks the start).
    void noticeFollowsTheStoredBuildAndTheUpdater()
    {
        using Action = std::function<void(UpdateNotice&)>;
        const Action found = [](UpdateNotice& n) { n.didFindValidUpdate(); };
        const Action notFound = [](UpdateNotice& n) { n.didNotFindUpdate(); };
        const auto choice = [](UpdateChoice c) {
            return Action([c](UpdateNotice& n) { n.userDidMakeChoice(c); });
        };
        using Stored = std::optional<QString>;
        const struct {
            const char* name;
            Stored stored;
            QString build;
            Action action;
            bool available;
            Stored storedAfter;
        } rows[] = {
            {"nothing stored", {}, u"42"_s, {}, false, {}},
            {"found in this build", u"42"_s, u"42"_s, {}, true, u"42"_s},
            {"found in an older build", u"42"_s, u"43"_s, {}, false, u"42"_s},
            {"empty build", u""_s, u""_s, {}, false, u""_s},
            {"empty build, key of another", u"42"_s, u""_s, {}, false, u"42"_s},
            {"found", {}, u"42"_s, found, true, u"42"_s},
            {"found, empty build", {}, u""_s, found, true, {}},
            {"not found", u"42"_s, u"42"_s, notFound, false, {}},
            {"skipped", u"42"_s, u"42"_s, choice(UpdateChoice::Skip), false, {}},
            {"raw choice 0 is skip", u"42"_s, u"42"_s, choice(UpdateChoice(0)), false, {}},
            {"install", u"42"_s, u"42"_s, choice(UpdateChoice::Install), true, u"42"_s},
            {"dismissed", u"42"_s, u"42"_s, choice(UpdateChoice::Dismiss), true, u"42"_s},
        };
        for (const auto& row : rows) {
            QSettings settings(m_dir.filePath(u"settings.ini"_s), QSettings::IniFormat);
            settings.clear();
            if (row.stored) settings.setValue(u"updateAvailableForBuild"_s, *row.stored);
            UpdateNotice notice(&settings, row.build);
            const bool before = notice.available();
            QSignalSpy changed(&notice, &UpdateNotice::availableChanged);
            if (row.action) row.action(notice);
            const QVariant after = settings.value(u"updateAvailableForBuild"_s);
            QVERIFY2(notice.available() == row.available, row.name);
            QVERIFY2(changed.size() == (before != row.available ? 1 : 0), row.name);
            QVERIFY2((after.isValid() ? Stored(after.toString()) : Stored()) == row.storedAfter,
                     row.name);
        }
    }
};

QTEST_GUILESS_MAIN(UpdateNoticeTest)
#include "tst_updatenotice.moc"
