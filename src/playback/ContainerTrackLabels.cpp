#include "ContainerTrackLabels.h"

#include "TranslationCatalog.h"

#include <QLocale>

namespace quorvane::nativemedia {

QString languageName(const QString& code)
{
    const QLocale::Language language = QLocale::codeToLanguage(code, QLocale::ISO639Alpha3);
    if (language == QLocale::AnyLanguage || language == QLocale::C) return {};
    // Qt names languages in English only; the catalog has the common ones in Chinese, and any
    // other language is shown by its own name rather than in a third language.
    const QString english = QLocale::languageToString(language);
    if (playerLanguage().language() == QLatin1String("en")) return english;
    const QString translated = translate(english);
    if (translated != english) return translated;
    const QString native = QLocale(language).nativeLanguageName();
    return native.isEmpty() ? english : native;
}

QString containerTrackLabel(const ContainerMedia::Track& track, int position)
{
    const QString language = languageName(track.language);
    const QString name = track.name.trimmed();
    if (!language.isEmpty() && !name.isEmpty()) return language + QStringLiteral(" \u2014 ") + name;
    if (!language.isEmpty()) return language;
    if (!name.isEmpty()) return name;
    return translate(QStringLiteral("Track %1")).arg(position);
}

void labelContainerAudio(QList<PlaybackTrack>& tracks, const QList<ContainerMedia::Track>& engine)
{
    QList<ContainerMedia::Track> audio;
    for (const auto& track : engine)
        if (!track.video) audio.append(track);
    QList<PlaybackTrack*> shown;
    for (auto& track : tracks)
        if (track.kind == PlaybackTrackKind::Audio) shown.append(&track);
    if (shown.size() != audio.size()) return;
    for (qsizetype i = 0; i < shown.size(); ++i)
        shown[i]->label = containerTrackLabel(audio[i], int(i + 1));
}

} // namespace quorvane::nativemedia
