// The real settings window on a display: tabs and heights, the copy, the update button and the
// language picker re-labelling this and every other window at once.
// With QV_SCREENSHOT_DIR set, `screenshots` saves every tab in English and Chinese there.
#include "AppSettings.h"
#include "Localizer.h"
#include "Player.h"
#include "TranslationCatalog.h"
#include "support/ScriptedBackend.h"

#include <QDir>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace quorvane;
using namespace Qt::StringLiterals;

struct CountingUpdater : Updater {
    int checks = 0;
    void checkForUpdates() override { ++checks; }
};

class SettingsWindowTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    std::unique_ptr<QSettings> m_settings;
    std::unique_ptr<Player> m_player;
    std::unique_ptr<UpdateNotice> m_notice;
    std::unique_ptr<AppSettings> m_appSettings;
    QQmlEngine m_engine;
    std::unique_ptr<QQuickWindow> m_window;

    void open(Updater* updater = nullptr)
    {
        m_window.reset();
        m_appSettings = std::make_unique<AppSettings>(m_player.get(), m_notice.get(), updater);
        QQmlComponent component(&m_engine, QUrl(u"qrc:/Quorvane/Settings/SettingsWindow.qml"_s));
        QVERIFY2(component.isReady(), qPrintable(component.errorString()));
        QObject* object = component.createWithInitialProperties(
            {{u"settings"_s, QVariant::fromValue(m_appSettings.get())}});
        QVERIFY2(object, qPrintable(component.errorString()));
        m_window.reset(qobject_cast<QQuickWindow*>(object));
        m_window->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    }

    QQuickItem* find(const char* name) const
    {
        return m_window->findChild<QQuickItem*>(QString::fromLatin1(name));
    }
    QString text(const char* name) const { return find(name)->property("text").toString(); }
    QQuickWindow* openNotices()
    {
        click(find("noticesLink"));
        QObject* loader = m_window->findChild<QObject*>(u"noticesLoader"_s);
        QTest::qWaitFor([loader] { return loader->property("item").value<QObject*>(); }, 5000);
        return qobject_cast<QQuickWindow*>(loader->property("item").value<QObject*>());
    }

    void click(QQuickItem* item)
    {
        QVERIFY(item && item->isVisible());
        // After a resize the layout settles at the next polish; click where the item ends up.
        const auto centre = [item] {
            return item->mapToScene(QPointF(item->width() / 2, item->height() / 2));
        };
        QTRY_VERIFY(QRectF(0, 0, m_window->width(), m_window->height()).contains(centre()));
        QTest::qWait(50);
        QTest::mouseClick(m_window.get(), Qt::LeftButton, {}, centre().toPoint());
    }

    void showTab(const char* tab, int height)
    {
        click(find(tab));
        QTRY_COMPARE_WITH_TIMEOUT(m_window->height(), height, 5000);
        QCOMPARE(m_window->width(), 560);
    }

private slots:
    void initTestCase()
    {
        // The shared diagnostic log that the copy button fills lands in this test's directory.
        qputenv("XDG_DATA_HOME", m_dir.filePath(u"data"_s).toUtf8());
        m_settings =
            std::make_unique<QSettings>(m_dir.filePath(u"settings.ini"_s), QSettings::IniFormat);
        setPlayerLanguageSettings(m_settings.get());
        m_player = std::make_unique<Player>(m_settings.get(),
                                            std::make_unique<testing::ScriptedBackend>());
        m_notice = std::make_unique<UpdateNotice>(m_settings.get(), u"42"_s);
        m_engine.addImportPath(u"qrc:/"_s);
    }

    void cleanupTestCase()
    {
        m_window.reset();
        m_appSettings.reset();
        m_player.reset();
        setPlayerLanguageSettings(nullptr);
    }

    // One visit: the height follows the tab, the copy works without an endpoint, the language
    // picker re-labels this and every other window at once, and the update button asks for a check.
    void aVisitToTheSettings()
    {
        m_notice->setAvailable(true);
        CountingUpdater updater;
        open(&updater);
        QCOMPARE(m_window->size(), QSize(560, 220));
        showTab("feedbackTab", 560);
        click(find("copyButton"));
        QTRY_COMPARE(text("copyOutcome"), u"Diagnostic log copied"_s);
        showTab("aboutTab", 310);
        QCOMPARE(text("updateLine"), u"A new version is available"_s);
        click(find("checkForUpdatesButton"));
        QCOMPARE(updater.checks, 1);
        m_notice->didNotFindUpdate();
        QVERIFY(!find("updateLine")->isVisible());

        showTab("generalTab", 220);
        Localizer playerWindow; // stands in for the player window, which keeps its own
        QSignalSpy relabelled(&playerWindow, &Localizer::languageChanged);
        find("languagePicker")->forceActiveFocus(); // as a keyboard user: one step down, then up
        QTest::keyClick(m_window.get(), Qt::Key_Down);
        QCOMPARE(m_settings->value(u"interfaceLanguage"_s).toString(), u"zh-Hans"_s);
        QCOMPARE(relabelled.size(), 1);
        QCOMPARE(playerWindow.text(u"Your private cinema"_s), u"你的私人放映室"_s);
        QCOMPARE(m_window->title(), u"设置"_s);
        QTest::keyClick(m_window.get(), Qt::Key_Up);
        QCOMPARE(m_settings->value(u"interfaceLanguage"_s).toString(), u"en"_s);
        QCOMPARE(m_window->title(), u"Settings"_s);
        m_window.reset();
    }

    void screenshots()
    {
        const QString directory = qEnvironmentVariable("QV_SCREENSHOT_DIR");
        if (directory.isEmpty()) QSKIP("QV_SCREENSHOT_DIR is not set");
        QDir().mkpath(directory);
        const std::tuple<const char*, const char*, int> tabs[] = {{"generalTab", "general", 220},
                                                                  {"feedbackTab", "feedback", 560},
                                                                  {"aboutTab", "about", 310}};
        for (const QString& language : {u"en"_s, u"zh-Hans"_s}) {
            open();
            m_appSettings->setLanguage(language);
            for (const auto& [tab, name, height] : tabs) {
                showTab(tab, height);
                QTest::qWait(300);
                const QString file =
                    u"%1/settings-%2-%3.png"_s.arg(directory, QString::fromLatin1(name), language);
                QVERIFY(m_window->grabWindow().save(file));
            }
            showTab("feedbackTab", 560);
            click(find("copyButton"));
            QTest::qWait(300);
            QVERIFY(m_window->grabWindow().save(
                u"%1/settings-feedback-copied-%2.png"_s.arg(directory, language)));
            showTab("aboutTab", 310);
            QQuickWindow* notices = openNotices();
            QVERIFY(notices && QTest::qWaitForWindowExposed(notices));
            QTest::qWait(300);
            QVERIFY(notices->grabWindow().save(
                u"%1/settings-notices-%2.png"_s.arg(directory, language)));
        }
        m_appSettings->setLanguage(u"en"_s);
    }
};

QTEST_MAIN(SettingsWindowTest)
#include "tst_settingswindow.moc"
