#include "Localizer.h"
#include "TranslationCatalog.h"

#include <QQmlContext>
#include <QQmlEngine>
#include <QQmlExpression>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace quorvane;

namespace {

bool hasHanCharacter(const QString& text)
{
    for (const QChar c : text) {
        if (c.script() == QChar::Script_Han) return true;
    }
    return false;
}

} // namespace

class LocalizationTest : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void preferenceReadsOnlySupportedStoredValues();
    void lookupFallsBackToTheKey();
    void tableCoversEveryTextOnceInChinese();
    void localizerSwitchesBindingsAtRunTime();

private:
    QTemporaryDir m_dir;
    std::unique_ptr<QSettings> m_settings;
};

void LocalizationTest::init()
{
    m_settings = std::make_unique<QSettings>(m_dir.filePath(QStringLiteral("settings.ini")),
                                             QSettings::IniFormat);
    m_settings->clear();
    setPlayerLanguageSettings(m_settings.get());
}

void LocalizationTest::cleanup()
{
    setPlayerLanguageSettings(nullptr);
    m_settings.reset();
}

void LocalizationTest::preferenceReadsOnlySupportedStoredValues()
{
    auto& language = playerLanguage();
    QCOMPARE(language.key(), QStringLiteral("interfaceLanguage"));
    QCOMPARE(language.language(), QStringLiteral("en"));
    QCOMPARE(translate(QStringLiteral("OK")), QStringLiteral("OK"));

    language.setLanguage(QStringLiteral("fr"));
    QVERIFY(!m_settings->contains(QStringLiteral("interfaceLanguage")));

    language.setLanguage(QStringLiteral("zh-Hans"));
    QCOMPARE(m_settings->value(QStringLiteral("interfaceLanguage")).toString(),
             QStringLiteral("zh-Hans"));
    language.setLanguage(QStringLiteral("ZH-HANS"));
    QCOMPARE(language.language(), QStringLiteral("zh-Hans"));

    // Values written by other means are read fresh, and invalid ones read as the default.
    m_settings->setValue(QStringLiteral("interfaceLanguage"), QStringLiteral("fr"));
    QCOMPARE(language.language(), QStringLiteral("en"));
    m_settings->setValue(QStringLiteral("interfaceLanguage"), QStringList{"zh-Hans"});
    QCOMPARE(language.language(), QStringLiteral("en"));
    m_settings->setValue(QStringLiteral("interfaceLanguage"), 7);
    QCOMPARE(language.language(), QStringLiteral("en"));
    m_settings->setValue(QStringLiteral("interfaceLanguage"), QStringLiteral("zh-Hans"));
    QCOMPARE(language.language(), QStringLiteral("zh-Hans"));

    // The stored choice survives into a fresh settings object over the same file.
    m_settings->sync();
    QSettings reopened(m_settings->fileName(), QSettings::IniFormat);
    setPlayerLanguageSettings(&reopened);
    QCOMPARE(playerLanguage().language(), QStringLiteral("zh-Hans"));
    QCOMPARE(translate(QStringLiteral("Your private cinema")), QStringLiteral("你的私人放映室"));
}

void LocalizationTest::lookupFallsBackToTheKey()
{
    const auto& catalog = playerCatalog();
    QCOMPARE(catalog.translations().keys(), QList<QString>{"zh-Hans"});
    QCOMPARE(catalog.text("OK", "zh-Hans"), QStringLiteral("好"));
    QCOMPARE(catalog.text("ok", "zh-Hans"), QStringLiteral("ok"));
    QCOMPARE(catalog.text("Unable to open:", "zh-Hans"), QStringLiteral("Unable to open:"));
    QCOMPARE(catalog.text("OK", "en"), QStringLiteral("OK"));
    QCOMPARE(catalog.text("OK", "zh-hans"), QStringLiteral("OK"));
    QCOMPARE(catalog.text("Not in the table", "zh-Hans"), QStringLiteral("Not in the table"));

    QCOMPARE(catalog.text("This Mac cannot play this file's format or codec.", "zh-Hans"),
             QStringLiteral("此 Mac 不支持这个文件的格式或编码。"));
    QCOMPARE(catalog.text("Update checks are unavailable in this build.", "zh-Hans"),
             QStringLiteral("此版本暂不支持检查更新。"));
}

void LocalizationTest::tableCoversEveryTextOnceInChinese()
{
    const auto& rows = chineseTranslationTable();
    QSet<QString> seen;
    for (const auto& [english, chinese] : rows) {
        QVERIFY2(!seen.contains(english), qPrintable(english));
        seen.insert(english);
        QVERIFY2(hasHanCharacter(chinese), qPrintable(english));
        QVERIFY2(!chinese.trimmed().isEmpty() && chinese == chinese.trimmed(), qPrintable(english));
    }
    QCOMPARE(chineseTranslations().size(), rows.size());
    // Keys that only match when spelt exactly: trailing space, ellipsis, symbols.
    for (const char* key :
         {"Unable to open: ", "Load Subtitle File\u2026", "Check for Updates\u2026",
          "Drop a video here, or press \u2318O to open", "About \u2022 Update", "Show in Folder",
          "This computer cannot play this file's format or codec."})
        QVERIFY2(seen.contains(QString::fromUtf8(key)), key);
}

void LocalizationTest::localizerSwitchesBindingsAtRunTime()
{
    Localizer localizer;
    QCOMPARE(localizer.supportedLanguages(), QStringList({"en", "zh-Hans"}));
    QQmlEngine engine;
    engine.rootContext()->setContextProperty(QStringLiteral("localizer"), &localizer);
    // The same expression a view binds to; it must notice the language change by itself.
    QQmlExpression label(engine.rootContext(), nullptr,
                         QStringLiteral("localizer.language, localizer.text(\"Cancel\")"));
    label.setNotifyOnValueChanged(true);
    QCOMPARE(label.evaluate().toString(), QStringLiteral("Cancel"));
    QSignalSpy reevaluate(&label, &QQmlExpression::valueChanged);

    QSignalSpy changed(&localizer, &Localizer::languageChanged);
    localizer.setLanguage(QStringLiteral("zh-Hans"));
    QCOMPARE(changed.size(), 1);
    QCOMPARE(reevaluate.size(), 1);
    QCOMPARE(label.evaluate().toString(), QStringLiteral("取消"));
    QCOMPARE(m_settings->value(QStringLiteral("interfaceLanguage")).toString(),
             QStringLiteral("zh-Hans"));

    localizer.setLanguage(QStringLiteral("zh-Hans"));
    localizer.setLanguage(QStringLiteral("de"));
    QCOMPARE(changed.size(), 1);
    QCOMPARE(localizer.language(), QStringLiteral("zh-Hans"));

    localizer.setLanguage(QStringLiteral("en"));
    QCOMPARE(changed.size(), 2);
    QCOMPARE(label.evaluate().toString(), QStringLiteral("Cancel"));
}

QTEST_GUILESS_MAIN(LocalizationTest)
#include "tst_localization.moc"
