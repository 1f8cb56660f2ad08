// The player window as a person uses it: the real window under a display, real GStreamer playing
// generated files, and synthesized keys, clicks, drags and drops on that window.
#include "PlaybackHistory.h"
#include "Player.h"
#include "PlayerShell.h"
#include "PlaylistPanelController.h"
#include "TranslationCatalog.h"

#include <QDir>
#include <QFile>
#include <QMimeData>
#include <QQuickItem>
#include <QQuickWindow>
#include <QScreen>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

using namespace quorvane;
using namespace Qt::StringLiterals;

namespace {

const QString kFixtures = QStringLiteral(QV_NATIVE_FIXTURE_DIR);

QUrl fixture(const QString& name)
{
    return QUrl::fromLocalFile(kFixtures + u'/' + name);
}

} // namespace

class PlayerWindowTest : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    std::unique_ptr<QSettings> m_settings;
    std::unique_ptr<Player> m_player;
    std::unique_ptr<PlayerShell> m_shell;
    QQuickWindow* m_window = nullptr;

    template <typename T = QQuickItem> T* find(const char* name) const
    {
        return m_window->findChild<T*>(QLatin1String(name));
    }
    QObject* action(const char* name) const
    {
        return find<QObject>("actions")->property(name).value<QObject*>();
    }
    QPoint centre(QQuickItem* item) const
    {
        return item->mapToScene(QPointF(item->width() / 2, item->height() / 2)).toPoint();
    }
    void click(QQuickItem* item)
    {
        QVERIFY(item);
        QTest::mouseClick(item->window(), Qt::LeftButton, {}, centre(item));
    }
    bool controlsShown() const { return find("playerView")->property("controlsShown").toBool(); }

    void openAndPlay(const QUrl& url)
    {
        m_player->open(url);
        QTRY_VERIFY_WITH_TIMEOUT(m_player->loaded(), 20000);
        if (m_player->paused()) m_player->toggle();
        QTRY_VERIFY_WITH_TIMEOUT(!m_player->paused(), 5000);
    }

    // A player and its window over m_settings; the shell refers to the player, so it goes first.
    void start(QSize size, const QString& language = {})
    {
        m_shell.reset();
        m_player = std::make_unique<Player>(m_settings.get(), nullptr, true);
        m_shell = std::make_unique<PlayerShell>(*m_player);
        if (!language.isEmpty()) m_shell->localizer().setLanguage(language);
        QVERIFY(m_shell->load());
        m_window = m_shell->window();
        m_window->resize(size);
        m_window->requestActivate();
        QVERIFY(QTest::qWaitForWindowExposed(m_window));
    }

private slots:
    void init()
    {
        m_settings =
            std::make_unique<QSettings>(m_dir.filePath(u"settings.ini"_s), QSettings::IniFormat);
        m_settings->clear();
        setPlayerLanguageSettings(m_settings.get());
        start(QSize(960, 600));
    }

    void cleanup()
    {
        m_shell.reset();
        m_player.reset();
        setPlayerLanguageSettings(nullptr);
        m_settings.reset();
    }

    // One person's session: a drop of files and a folder, keys and pointer on the picture, the
    // controls, full screen and the playlist panel. (Relabelling on a change of language is the
    // localization test's.)
    void aSessionInTheWindow()
    {
        // Two files and a folder dropped fill the playlist and the first one plays.
        QTemporaryDir media;
        QDir dir(media.path());
        QVERIFY(dir.mkdir(u"more"_s));
        for (const QString& name : {u"a.mkv"_s, u"b.mkv"_s, u"more/c.mkv"_s})
            QVERIFY(QFile::copy(kFixtures + u"/native-long.mkv"_s, dir.filePath(name)));
        QMimeData data; // dropped on the picture as a file manager would
        data.setUrls({QUrl::fromLocalFile(dir.filePath(u"a.mkv"_s)),
                      QUrl::fromLocalFile(dir.filePath(u"b.mkv"_s)),
                      QUrl::fromLocalFile(dir.filePath(u"more"_s))});
        const QPoint at(m_window->width() / 2, m_window->height() / 3);
        QDragEnterEvent enter(at, Qt::CopyAction, &data, Qt::LeftButton, {});
        QCoreApplication::sendEvent(m_window, &enter);
        QDropEvent dropped(at, Qt::CopyAction, &data, Qt::LeftButton, {});
        QCoreApplication::sendEvent(m_window, &dropped);
        QTRY_COMPARE(m_player->playlist().size(), 3);
        QTRY_VERIFY_WITH_TIMEOUT(m_player->loaded(), 20000);
        QCOMPARE(m_player->currentURL().fileName(), u"a.mkv"_s);

        if (m_player->paused()) m_player->toggle();
        QTRY_VERIFY(m_window->isActive() && !m_player->paused());
        QTRY_COMPARE(m_window->width(), 640); // fitted to the video: the layout stays put
        QTRY_COMPARE(m_window->title(), u"a"_s);

        // A tap seeks 5 s; a hold boosts and its release restores the speed exactly, no seek.
        QTRY_VERIFY(m_player->position() > 0.2);
        double before = m_player->position();
        QTest::keyClick(m_window, Qt::Key_Right);
        QTRY_VERIFY(qAbs(m_player->position() - (before + 5)) < 1.0);
        m_player->setBaseSpeed(1.25);
        m_player->seek(1);
        QTRY_VERIFY(m_player->position() < 2);
        before = m_player->position();
        QTest::keyPress(m_window, Qt::Key_Left);
        QTRY_VERIFY_WITH_TIMEOUT(m_player->isBoosting(), 3000);
        QCOMPARE(m_player->speed(), 1.25 * 2);
        QTest::keyRelease(m_window, Qt::Key_Left);
        QVERIFY(!m_player->isBoosting() && m_player->speed() == 1.25);
        QVERIFY(m_player->position() >= before - 0.5);

        // Another window taking the focus ends a hold at once.
        QTest::keyPress(m_window, Qt::Key_Right);
        QTRY_VERIFY_WITH_TIMEOUT(m_player->isBoosting(), 3000);
        QWindow other;
        other.resize(80, 80);
        other.show();
        other.requestActivate();
        QTRY_VERIFY(!m_window->isActive());
        QVERIFY(!m_player->isBoosting() && m_player->speed() == 1.25);
        other.close();
        m_window->requestActivate();
        QTRY_VERIFY(m_window->isActive());
        QTest::keyRelease(m_window, Qt::Key_Right);

        // Return and a double click on the picture toggle full screen.
        const QPoint middle(m_window->width() / 2, m_window->height() / 3);
        QTest::keyClick(m_window, Qt::Key_Return);
        QTRY_COMPARE(m_window->visibility(), QWindow::FullScreen);
        QTest::mouseDClick(m_window, Qt::LeftButton, {}, middle);
        QTRY_VERIFY(m_window->visibility() != QWindow::FullScreen);
        QTRY_COMPARE(m_window->width(), 640);

        // Resting 2 s hides the controls; moving shows them; resting over the bar keeps them.
        QTest::mouseMove(m_window, middle - QPoint(20, 20));
        QTest::mouseMove(m_window, middle);
        QTRY_VERIFY(controlsShown());
        QTRY_VERIFY_WITH_TIMEOUT(!controlsShown(), 4000);
        QTest::mouseMove(m_window, middle + QPoint(10, 10));
        QVERIFY(controlsShown());
        auto* slider = find("positionSlider");
        QVERIFY(slider);
        QTest::mouseMove(m_window, centre(slider));
        QTest::qWait(2600);
        QVERIFY(controlsShown());

        // The playlist panel goes right of the window, else left, else inside the screen; it opens
        // an entry on click.
        for (const auto& [parent, expected] :
             {std::pair{QRect(100, 50, 600, 400), QRect(708, 50, 300, 400)},
              {QRect(700, 50, 500, 400), QRect(392, 50, 300, 400)},
              {QRect(100, 0, 1100, 800), QRect(980, 0, 300, 800)}})
            QCOMPARE(
                PlaylistPanelController::placement(parent, QSize(300, 200), QRect(0, 0, 1280, 800)),
                expected);
        QMetaObject::invokeMethod(action("togglePlaylist"), "trigger");
        auto* panel = find<QQuickWindow>("playlistWindow");
        QVERIFY(panel && QTest::qWaitForWindowExposed(panel));
        QCOMPARE(panel->transientParent(), m_window);
        auto* list = panel->findChild<QQuickItem*>(u"playlistList"_s);
        QTRY_COMPARE(list->property("count").toInt(), 3);
        QQuickItem* second = nullptr;
        QMetaObject::invokeMethod(list, "itemAtIndex", Q_RETURN_ARG(QQuickItem*, second),
                                  Q_ARG(int, 1));
        click(second);
        QTRY_COMPARE(m_player->currentURL().fileName(), u"b.mkv"_s);
        QMetaObject::invokeMethod(action("togglePlaylist"), "trigger");
        QTRY_VERIFY(!panel->isVisible());
    }

    // Not a check: the screenshots of scripts/screens, written to QV_SCREENS_DIR in the language
    // QV_SCREENS_LANGUAGE, of the movie QV_SCREENS_MEDIA (and QV_SCREENS_SUBTITLED, with an ASS
    // track).
    void screens()
    {
        const QString out = qEnvironmentVariable("QV_SCREENS_DIR");
        if (out.isEmpty()) QSKIP("set QV_SCREENS_DIR to write screenshots");
        const QString language = qEnvironmentVariable("QV_SCREENS_LANGUAGE", u"en"_s);
        const QString movie = qEnvironmentVariable("QV_SCREENS_MEDIA");
        QVERIFY(QFile::exists(movie));
        QDir().mkpath(out);
        auto shoot = [&](const QString& name) {
            QTest::qWait(400);
            const QImage image = m_window->grabWindow();
            QVERIFY(image.save(QDir(out).filePath(language + u'-' + name + u".png"_s)));
        };

        // Recent files with their watched progress.
        QTemporaryDir library;
        const QStringList names{u"Northern Lights Timelapse.mkv"_s,
                                u"Episode 2 - The Harbour.mkv"_s, u"Episode 10 - Homecoming.mkv"_s,
                                u"Family Trip 2024.mkv"_s};
        const QList<double> watched{0.42, 1.0, 0.08, 0.0};
        QList<QUrl> recent;
        QVariantMap progress;
        for (qsizetype i = names.size() - 1; i >= 0; --i) {
            const QString path = library.filePath(names[i]);
            QVERIFY(QFile::copy(movie, path));
            recent = history::withRecentFile(recent, QUrl::fromLocalFile(path));
            progress = history::storeWatchedProgress(
                *m_settings, progress, history::historyKey(QUrl::fromLocalFile(path)), watched[i]);
        }
        history::writeRecentFiles(*m_settings, recent);
        start(QSize(1024, 640), language); // over the written history
        shoot(u"welcome"_s);
        QTest::keyClick(m_window, Qt::Key_O, Qt::ControlModifier);
        QTRY_VERIFY(find<QObject>("openDialog")->property("visible").toBool());
        shoot(u"open-dialog"_s);
        QMetaObject::invokeMethod(find<QObject>("openDialog"), "close");

        // Playing, with and without the controls, then each overlay.
        openAndPlay(QUrl::fromLocalFile(library.filePath(names[0])));
        m_window->resize(1024, 640);
        QTest::qWait(2500);
        QTest::mouseMove(m_window, QPoint(500, 300));
        shoot(u"playing"_s);
        QTRY_VERIFY_WITH_TIMEOUT(!controlsShown(), 5000);
        shoot(u"controls-hidden"_s);
        m_player->adjustVolume(-15);
        shoot(u"volume-overlay"_s);
        QTRY_VERIFY_WITH_TIMEOUT(!m_player->showingVolume(), 5000);
        m_player->beginBoost();
        QTest::qWait(200);
        shoot(u"boost-overlay"_s);
        m_player->endBoost();

        // The menus and sheets, over the paused picture.
        m_player->toggle();
        QTest::mouseMove(m_window, QPoint(520, 320));
        QTRY_VERIFY(controlsShown());
        for (const auto& [popup, name] : {std::pair{"moreMenu", u"more-menu"_s},
                                          {"speedSheet", u"speed-sheet"_s},
                                          {"clearHistoryDialog", u"clear-history"_s}}) {
            QTest::qWait(300);
            if (name == u"more-menu"_s)
                click(find("moreButton"));
            else
                QMetaObject::invokeMethod(
                    action(name == u"speed-sheet"_s ? "speedSheet" : "clearHistory"), "trigger");
            QTRY_VERIFY(find<QObject>(popup)->property("opened").toBool());
            shoot(name);
            QMetaObject::invokeMethod(find<QObject>(popup), "close");
            QTRY_VERIFY(!find<QObject>(popup)->property("visible").toBool());
        }

        // The playlist panel beside the window: the screen itself, cut to the two windows.
        m_window->setPosition(40, 60);
        QTest::mouseMove(m_window, QPoint(m_window->width() / 2, m_window->height() / 5));
        QMetaObject::invokeMethod(action("togglePlaylist"), "trigger");
        auto* panel = find<QQuickWindow>("playlistWindow");
        QVERIFY(QTest::qWaitForWindowExposed(panel));
        QTest::qWait(800);
        const QRect both = m_window->frameGeometry().united(panel->frameGeometry());
        const QPixmap screen =
            m_window->screen()->grabWindow(0, both.x(), both.y(), both.width(), both.height());
        QVERIFY(screen.save(QDir(out).filePath(language + u"-playlist-panel.png"_s)));

        QMetaObject::invokeMethod(action("togglePlaylist"), "trigger");

        // Styled ASS subtitles over the playing picture, the controls hidden.
        const QString subtitled = qEnvironmentVariable("QV_SCREENS_SUBTITLED");
        if (QFile::exists(subtitled)) {
            openAndPlay(QUrl::fromLocalFile(subtitled));
            for (const MediaTrack& track : m_player->tracks()) {
                if (track.type == u"subtitle") m_player->selectTrack(track.type, track.id);
            }
            auto* overlay = find("subtitleOverlay");
            QTRY_VERIFY_WITH_TIMEOUT(overlay->property("showingText").toBool(), 10000);
            QTest::mouseMove(m_window, QPoint(m_window->width() / 2, m_window->height() / 2));
            QTRY_VERIFY_WITH_TIMEOUT(!controlsShown(), 8000);
            shoot(u"subtitles"_s);
        }

        // A file that cannot be played.
        m_player->open(fixture(u"native-text.mkv"_s));
        QTRY_VERIFY_WITH_TIMEOUT(!m_player->error().isEmpty(), 20000);
        QTest::mouseMove(m_window, QPoint(m_window->width() / 2, m_window->height() / 5));
        shoot(u"error-overlay"_s);
    }
};

int main(int argc, char* argv[])
{
    QCoreApplication::setOrganizationName(u"Quorvane Tests"_s);
    PlayerShell::prepareApplication();
    QGuiApplication app(argc, argv);
    PlayerWindowTest test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_player_window.moc"
