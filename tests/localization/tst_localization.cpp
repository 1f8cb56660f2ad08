#include "Localizer.h"
#include "TranslationCatalog.h"

#include <QQmlContext>
#include <QQmlEngine>
#include <QQmlExpression>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

using namespace quorvane;
using namespace Qt::StringLiterals;

class LocalizationTest : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    std::unique_ptr<QSettings> m_settings;

private slots:
    void init()
    {
        m_settings =
            std::make_unique<QSettings>(m_dir.filePath(u"settings.ini"_s), QSettings::IniFormat);
        m_settings->clear();
        setPlayerLanguageSettings(m_settings.get());
    }

    void cleanup()
    {
        setPlayerLanguageSettings(nullptr);
        m_settings.reset();
    }

    void preferenceReadsOnlySupportedStoredValues()
    {
        auto& language = playerLanguage();
        QCOMPARE(language.language(), u"en"_s);
        QCOMPARE(translate(u"OK"_s), u"OK"_s);

        language.setLanguage(u"fr"_s);
        QVERIFY(!m_settings->contains(u"interfaceLanguage"_s));

        language.setLanguage(u"zh-Hans"_s);
        QCOMPARE(m_settings->value(u"interfaceLanguage"_s).toString(), u"zh-Hans"_s);

        // Values written by other means are read fresh, and invalid ones read as the default.
        for (const QVariant& stored :
             {QVariant("fr"), QVariant(QStringList{"zh-Hans"}), QVariant(7)}) {
            m_settings->setValue(u"interfaceLanguage"_s, stored);
            QCOMPARE(language.language(), u"en"_s);
        }
        m_settings->setValue(u"interfaceLanguage"_s, u"zh-Hans"_s);

        // The stored choice survives into a fresh settings object over the same file.
        m_settings->sync();
        QSettings reopened(m_settings->fileName(), QSettings::IniFormat);
        setPlayerLanguageSettings(&reopened);
        QCOMPARE(playerLanguage().language(), u"zh-Hans"_s);
        QCOMPARE(translate(u"Your private cinema"_s), u"你的私人放映室"_s);
    }

    void lookupFallsBackToTheKey()
    {
        const auto& catalog = playerCatalog();
        QCOMPARE(catalog.text("OK", "zh-Hans"), u"好"_s);
        // Keys and language codes match exactly; anything else reads as the key itself.
        for (const auto& [key, language] : {std::pair{"ok", "zh-Hans"},
                                            {"Unable to open:", "zh-Hans"},
                                            {"Not in the table", "zh-Hans"},
                                            {"OK", "en"},
                                            {"OK", "zh-hans"}})
            QCOMPARE(catalog.text(key, language), QString::fromUtf8(key));
    }

    void tableCoversEveryTextOnceInChinese()
    {
        const auto& rows = chineseTranslationTable();
        QSet<QString> seen;
        for (const auto& [english, chinese] : rows) {
            QVERIFY2(!seen.contains(english), qPrintable(english));
            seen.insert(english);
            const bool han = std::any_of(chinese.cbegin(), chinese.cend(),
                                         [](QChar c) { return c.script() == QChar::Script_Han; });
            QVERIFY2(han && chinese == chinese.trimmed(), qPrintable(english));
        }
        QCOMPARE(chineseTranslations().size(), rows.size());
        // Keys that only match when spelt exactly: trailing space, ellipsis, symbols.
        for (const char* key :
             {"Unable to open: ", "Load Subtitle File\u2026", "Check for Updates\u2026",
              "Drop a video here, or press \u2318O to open", "About \u2022 Update",
              "Show in Folder", "This computer cannot play this file's format or codec.",
              "This Mac cannot play this file's format or codec.",
              "Update checks are unavailable in this build."})
            QVERIFY2(seen.contains(QString::fromUtf8(key)), key);
    }

    void localizerSwitchesBindingsAtRunTime()
    {
        Localizer localizer;
        QCOMPARE(localizer.supportedLanguages(), QStringList({"en", "zh-Hans"}));
        QQmlEngine engine;
        engine.rootContext()->setContextProperty(u"localizer"_s, &localizer);
        // The same expression a view binds to; it must notice the language change by itself.
        QQmlExpression label(engine.rootContext(), nullptr,
                             u"localizer.language, localizer.text(\"Cancel\")"_s);
        label.setNotifyOnValueChanged(true);
        QCOMPARE(label.evaluate().toString(), u"Cancel"_s);
        QSignalSpy reevaluate(&label, &QQmlExpression::valueChanged);

        QSignalSpy changed(&localizer, &Localizer::languageChanged);
        // Another window's Localizer hears a change made through this one.
        Localizer otherWindow;
        QSignalSpy otherChanged(&otherWindow, &Localizer::languageChanged);
        localizer.setLanguage(u"zh-Hans"_s);
        QCOMPARE((QList<qsizetype>{changed.size(), otherChanged.size(), reevaluate.size()}),
                 (QList<qsizetype>{1, 1, 1}));
        QCOMPARE(label.evaluate().toString(), u"取消"_s);
        QCOMPARE(m_settings->value(u"interfaceLanguage"_s).toString(), u"zh-Hans"_s);

        localizer.setLanguage(u"zh-Hans"_s);
        localizer.setLanguage(u"de"_s);
        QCOMPARE(changed.size(), 1);
        QCOMPARE(localizer.language(), u"zh-Hans"_s);

        localizer.setLanguage(u"en"_s);
        QCOMPARE(changed.size(), 2);
        QCOMPARE(label.evaluate().toString(), u"Cancel"_s);
    }
};

QTEST_GUILESS_MAIN(LocalizationTest)
#include "tst_localization.moc"
