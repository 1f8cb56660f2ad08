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

private slots:
    void everyTextHasChineseOnceAndOtherKeysFallBack()
    {
        QSet<QString> seen;
        for (const auto& [english, chinese] : chineseTranslationTable()) {
            QVERIFY2(!seen.contains(english), qPrintable(english));
            seen.insert(english);
            const bool han = std::any_of(chinese.cbegin(), chinese.cend(),
                                         [](QChar c) { return c.script() == QChar::Script_Han; });
            QVERIFY2(han && chinese == chinese.trimmed(), qPrintable(english));
        }
        QCOMPARE(chineseTranslations().size(), seen.size());
        // Keys that only match when spelt exactly: trailing space, ellipsis, symbols.
        for (const char* key :
             {"Unable to open: ", "Load Subtitle File\u2026",
              "Drop a video here, or press \u2318O to open", "About \u2022 Update"})
            QVERIFY2(seen.contains(QString::fromUtf8(key)), key);
        // Keys and language codes match exactly; anything else reads as the key itself.
        for (const auto& [key, language] :
             {std::pair{"ok", "zh-Hans"}, {"Not in the table", "zh-Hans"}, {"OK", "zh-hans"}})
            QCOMPARE(playerCatalog().text(key, language), QString::fromUtf8(key));
    }

    void switchesBindingsAtRunTime()
    {
        QTemporaryDir dir;
        QSettings settings(dir.filePath(u"s.ini"_s), QSettings::IniFormat);
        setPlayerLanguageSettings(&settings);
        // A stored value that is not a supported language reads as the default.
        settings.setValue(u"interfaceLanguage"_s, QStringList{"zh-Hans"});
        QCOMPARE(playerLanguage().language(), u"en"_s);

        Localizer localizer;
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
        // Repeating the language, or an unsupported one, changes nothing.
        localizer.setLanguage(u"zh-Hans"_s);
        localizer.setLanguage(u"de"_s);
        QCOMPARE(changed.size(), 1);

        // Text made in C++ follows too.
        QCOMPARE(translate(u"Your private cinema"_s), u"你的私人放映室"_s);
        setPlayerLanguageSettings(nullptr);
    }
};

QTEST_GUILESS_MAIN(LocalizationTest)
#include "tst_localization.moc"
