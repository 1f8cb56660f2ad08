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

private:
    QTemporaryDir m_dir;

    std::unique_ptr<QSettings> freshSettings(const std::optional<QString>& stored)
    {
        auto settings =
            std::make_unique<QSettings>(m_dir.filePath(u"settings.ini"_s), QSettings::IniFormat);
        settings->clear();
        if (stored) settings->setValue(u"updateAvailableForBuild"_s, *stored);
        return settings;
    }

    static std::optional<QString> storedBuild(QSettings& settings)
    {
        const QVariant value = settings.value(u"updateAvailableForBuild"_s);
        return value.isValid() ? std::optional(value.toString()) : std::nullopt;
    }

private slots:
    void startsFromTheStoredBuild()
    {
        // What a launch shows for what an earlier launch stored.
        const struct {
            const char* name;
            std::optional<QString> stored;
            QString build;
            bool available;
        } rows[] = {
            {"nothing stored", std::nullopt, u"42"_s, false},
            {"found in this build", u"42"_s, u"42"_s, true},
            {"found in an older build", u"42"_s, u"43"_s, false},
            {"empty build", u""_s, u""_s, false},
            {"empty build, key of another", u"42"_s, u""_s, false},
        };
        for (const auto& row : rows) {
            auto settings = freshSettings(row.stored);
            UpdateNotice notice(settings.get(), row.build);
            QVERIFY2(notice.available() == row.available, row.name);
        }
    }

    void updaterFindingsChangeAndPersistTheNotice()
    {
        using Action = std::function<void(UpdateNotice&)>;
        const Action found = [](UpdateNotice& n) { n.didFindValidUpdate(); };
        const auto choice = [](UpdateChoice c) {
            return Action([c](UpdateNotice& n) { n.userDidMakeChoice(c); });
        };
        const struct {
            const char* name;
            std::optional<QString> stored;
            QString build;
            Action action;
            bool available;
            std::optional<QString> storedAfter;
        } rows[] = {
            {"found", std::nullopt, u"42"_s, found, true, u"42"_s},
            {"found again", u"42"_s, u"42"_s, found, true, u"42"_s},
            {"found, empty build", std::nullopt, u""_s, found, true, std::nullopt},
            {"not found", u"42"_s, u"42"_s, [](UpdateNotice& n) { n.didNotFindUpdate(); }, false,
             std::nullopt},
            {"skipped", u"42"_s, u"42"_s, choice(UpdateChoice::Skip), false, std::nullopt},
            {"raw choice 0 is skip", u"42"_s, u"42"_s, choice(UpdateChoice(0)), false,
             std::nullopt},
            {"install", u"42"_s, u"42"_s, choice(UpdateChoice::Install), true, u"42"_s},
            {"dismissed", u"42"_s, u"42"_s, choice(UpdateChoice::Dismiss), true, u"42"_s},
            {"set false", u"42"_s, u"42"_s, [](UpdateNotice& n) { n.setAvailable(false); }, false,
             std::nullopt},
            {"older build's key, not found", u"41"_s, u"42"_s,
             [](UpdateNotice& n) { n.didNotFindUpdate(); }, false, std::nullopt},
        };
        for (const auto& row : rows) {
            auto settings = freshSettings(row.stored);
            UpdateNotice notice(settings.get(), row.build);
            const bool before = notice.available();
            QSignalSpy changed(&notice, &UpdateNotice::availableChanged);
            row.action(notice);
            QVERIFY2(notice.available() == row.available, row.name);
            QVERIFY2(changed.size() == (before != row.available ? 1 : 0), row.name);
            QVERIFY2(storedBuild(*settings) == row.storedAfter, row.name);
        }
    }

    void noticeSurvivesARestartOfTheSameBuildOnly()
    {
        {
            auto settings = freshSettings(std::nullopt);
            UpdateNotice(settings.get(), u"42"_s).didFindValidUpdate();
            settings->sync();
        }
        QSettings reopened(m_dir.filePath(u"settings.ini"_s), QSettings::IniFormat);
        QVERIFY(UpdateNotice(&reopened, u"42"_s).available());
        QVERIFY(!UpdateNotice(&reopened, u"43"_s).available());
        // The compiled build number is what the program runs as.
        QCOMPARE(UpdateNotice(&reopened).build(), QStringLiteral(QV_BUILD_NUMBER));
    }
};

QTEST_GUILESS_MAIN(UpdateNoticeTest)
#include "tst_updatenotice.moc"
