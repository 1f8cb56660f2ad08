#include "PlayerShell.h"

#include "Player.h"
#include "WebMediaPlayback.h"

#include <QColor>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QIcon>
#include <QPalette>
#include <QQuickWindow>
#include <QUrl>

namespace quorvane {

void PlayerShell::prepareApplication()
{
    // The web backend's view needs its engine set up before the application object exists.
    WebMediaPlayback::initializeWebEngine();
    // A dark, desktop-dense Material look unless the user asked for another style.
    if (qEnvironmentVariableIsEmpty("QT_QUICK_CONTROLS_STYLE"))
        qputenv("QT_QUICK_CONTROLS_STYLE", "Material");
    if (qEnvironmentVariableIsEmpty("QT_QUICK_CONTROLS_MATERIAL_THEME"))
        qputenv("QT_QUICK_CONTROLS_MATERIAL_THEME", "Dark");
    if (qEnvironmentVariableIsEmpty("QT_QUICK_CONTROLS_MATERIAL_VARIANT"))
        qputenv("QT_QUICK_CONTROLS_MATERIAL_VARIANT", "Dense");
    if (qEnvironmentVariableIsEmpty("QT_QUICK_CONTROLS_MATERIAL_ACCENT"))
        qputenv("QT_QUICK_CONTROLS_MATERIAL_ACCENT", "#5B8DEF");
}

PlayerShell::PlayerShell(Player& player, QObject* parent)
    : QObject(parent), m_player(player), m_translator(m_localizer.language())
{
    // Outside a desktop that names its icon theme (a bare X server, a minimal session) the icons
    // come from Adwaita; a desktop's own theme still wins, with Adwaita behind it.
    const QString theme = QIcon::themeName();
    if (theme.isEmpty() || theme == QLatin1String("hicolor"))
        QIcon::setThemeName(QStringLiteral("Adwaita"));
    QIcon::setFallbackThemeName(QStringLiteral("Adwaita"));

    // Markdown links (the third-party notices) take the application palette's link colour, a dark
    // blue that does not read on the dark Material ground; they take the accent instead.
    const QColor accent(qEnvironmentVariable("QT_QUICK_CONTROLS_MATERIAL_ACCENT"));
    if (qEnvironmentVariable("QT_QUICK_CONTROLS_STYLE") == QLatin1String("Material") &&
        accent.isValid()) {
        QPalette palette = QGuiApplication::palette();
        palette.setColor(QPalette::Link, accent);
        palette.setColor(QPalette::LinkVisited, accent);
        QGuiApplication::setPalette(palette);
    }

    // Our modules are compiled in under qrc:/Quorvane; the views in sub-folders import them by
    // name.
    m_engine.addImportPath(QStringLiteral("qrc:/"));
    QCoreApplication::installTranslator(&m_translator);
    connect(&m_localizer, &Localizer::languageChanged, this, &PlayerShell::applyLanguage);
    connect(&m_engine, &QQmlApplicationEngine::objectCreationFailed, this,
            [] { qWarning("quorvane: the player window failed to load"); });
}

PlayerShell::~PlayerShell()
{
    QCoreApplication::removeTranslator(&m_translator);
}

bool PlayerShell::load()
{
    m_engine.setInitialProperties(
        {{QStringLiteral("player"), QVariant::fromValue(&m_player)},
         {QStringLiteral("localizer"), QVariant::fromValue(&m_localizer)},
         {QStringLiteral("appSettings"), QVariant::fromValue(&m_appSettings)}});
    m_engine.load(QUrl(QStringLiteral("qrc:/Quorvane/Main.qml")));
    return window() != nullptr;
}

QQuickWindow* PlayerShell::window() const
{
    const QList<QObject*> roots = m_engine.rootObjects();
    return roots.isEmpty() ? nullptr : qobject_cast<QQuickWindow*>(roots.first());
}

void PlayerShell::applyLanguage()
{
    m_translator.setLanguage(m_localizer.language());
    // Every qsTr() binding of the views is evaluated again with the new language.
    m_engine.retranslate();
}

} // namespace quorvane
