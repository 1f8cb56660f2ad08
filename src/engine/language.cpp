#include "language.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace qv {
namespace {

using CodePair = std::pair<std::string_view, std::string_view>;

// ISO 639-1 two-letter codes and their ISO 639-2/T equivalents, sorted by the first.
constexpr CodePair kTwoLetter[] = {
    {"aa", "aar"}, {"ab", "abk"}, {"ae", "ave"}, {"af", "afr"}, {"ak", "aka"}, {"am", "amh"},
    {"an", "arg"}, {"ar", "ara"}, {"as", "asm"}, {"av", "ava"}, {"ay", "aym"}, {"az", "aze"},
    {"ba", "bak"}, {"be", "bel"}, {"bg", "bul"}, {"bi", "bis"}, {"bm", "bam"}, {"bn", "ben"},
    {"bo", "bod"}, {"br", "bre"}, {"bs", "bos"}, {"ca", "cat"}, {"ce", "che"}, {"ch", "cha"},
    {"co", "cos"}, {"cr", "cre"}, {"cs", "ces"}, {"cu", "chu"}, {"cv", "chv"}, {"cy", "cym"},
    {"da", "dan"}, {"de", "deu"}, {"dv", "div"}, {"dz", "dzo"}, {"ee", "ewe"}, {"el", "ell"},
    {"en", "eng"}, {"eo", "epo"}, {"es", "spa"}, {"et", "est"}, {"eu", "eus"}, {"fa", "fas"},
    {"ff", "ful"}, {"fi", "fin"}, {"fj", "fij"}, {"fo", "fao"}, {"fr", "fra"}, {"fy", "fry"},
    {"ga", "gle"}, {"gd", "gla"}, {"gl", "glg"}, {"gn", "grn"}, {"gu", "guj"}, {"gv", "glv"},
    {"ha", "hau"}, {"he", "heb"}, {"hi", "hin"}, {"ho", "hmo"}, {"hr", "hrv"}, {"ht", "hat"},
    {"hu", "hun"}, {"hy", "hye"}, {"hz", "her"}, {"ia", "ina"}, {"id", "ind"}, {"ie", "ile"},
    {"ig", "ibo"}, {"ii", "iii"}, {"ik", "ipk"}, {"io", "ido"}, {"is", "isl"}, {"it", "ita"},
    {"iu", "iku"}, {"ja", "jpn"}, {"jv", "jav"}, {"ka", "kat"}, {"kg", "kon"}, {"ki", "kik"},
    {"kj", "kua"}, {"kk", "kaz"}, {"kl", "kal"}, {"km", "khm"}, {"kn", "kan"}, {"ko", "kor"},
    {"kr", "kau"}, {"ks", "kas"}, {"ku", "kur"}, {"kv", "kom"}, {"kw", "cor"}, {"ky", "kir"},
    {"la", "lat"}, {"lb", "ltz"}, {"lg", "lug"}, {"li", "lim"}, {"ln", "lin"}, {"lo", "lao"},
    {"lt", "lit"}, {"lu", "lub"}, {"lv", "lav"}, {"mg", "mlg"}, {"mh", "mah"}, {"mi", "mri"},
    {"mk", "mkd"}, {"ml", "mal"}, {"mn", "mon"}, {"mr", "mar"}, {"ms", "msa"}, {"mt", "mlt"},
    {"my", "mya"}, {"na", "nau"}, {"nb", "nob"}, {"nd", "nde"}, {"ne", "nep"}, {"ng", "ndo"},
    {"nl", "nld"}, {"nn", "nno"}, {"no", "nor"}, {"nr", "nbl"}, {"nv", "nav"}, {"ny", "nya"},
    {"oc", "oci"}, {"oj", "oji"}, {"om", "orm"}, {"or", "ori"}, {"os", "oss"}, {"pa", "pan"},
    {"pi", "pli"}, {"pl", "pol"}, {"ps", "pus"}, {"pt", "por"}, {"qu", "que"}, {"rm", "roh"},
    {"rn", "run"}, {"ro", "ron"}, {"ru", "rus"}, {"rw", "kin"}, {"sa", "san"}, {"sc", "srd"},
    {"sd", "snd"}, {"se", "sme"}, {"sg", "sag"}, {"si", "sin"}, {"sk", "slk"}, {"sl", "slv"},
    {"sm", "smo"}, {"sn", "sna"}, {"so", "som"}, {"sq", "sqi"}, {"sr", "srp"}, {"ss", "ssw"},
    {"st", "sot"}, {"su", "sun"}, {"sv", "swe"}, {"sw", "swa"}, {"ta", "tam"}, {"te", "tel"},
    {"tg", "tgk"}, {"th", "tha"}, {"ti", "tir"}, {"tk", "tuk"}, {"tl", "tgl"}, {"tn", "tsn"},
    {"to", "ton"}, {"tr", "tur"}, {"ts", "tso"}, {"tt", "tat"}, {"tw", "twi"}, {"ty", "tah"},
    {"ug", "uig"}, {"uk", "ukr"}, {"ur", "urd"}, {"uz", "uzb"}, {"ve", "ven"}, {"vi", "vie"},
    {"vo", "vol"}, {"wa", "wln"}, {"wo", "wol"}, {"xh", "xho"}, {"yi", "yid"}, {"yo", "yor"},
    {"za", "zha"}, {"zh", "zho"}, {"zu", "zul"},
};

// The bibliographic ISO 639-2/B codes that differ from their terminology codes, sorted.
constexpr CodePair kBibliographic[] = {
    {"alb", "sqi"}, {"arm", "hye"}, {"baq", "eus"}, {"bur", "mya"}, {"chi", "zho"},
    {"cze", "ces"}, {"dut", "nld"}, {"fre", "fra"}, {"geo", "kat"}, {"ger", "deu"},
    {"gre", "ell"}, {"ice", "isl"}, {"mac", "mkd"}, {"mao", "mri"}, {"may", "msa"},
    {"per", "fas"}, {"rum", "ron"}, {"slo", "slk"}, {"tib", "bod"}, {"wel", "cym"},
};

static_assert(std::is_sorted(std::begin(kTwoLetter), std::end(kTwoLetter)));
static_assert(std::is_sorted(std::begin(kBibliographic), std::end(kBibliographic)));

constexpr std::string_view kUndetermined = "und";

template <std::size_t N> std::string_view lookUp(const CodePair (&table)[N], std::string_view key)
{
    const auto found =
        std::lower_bound(std::begin(table), std::end(table), key,
                         [](const CodePair& p, std::string_view k) { return p.first < k; });
    return found != std::end(table) && found->first == key ? found->second : std::string_view{};
}

// The code in lowercase when it consists of `length` ASCII letters, else "".
std::string lettersOnly(std::string_view code, std::size_t length)
{
    if (code.size() != length) return {};
    std::string lower;
    for (const char c : code) {
        if (c >= 'A' && c <= 'Z')
            lower += static_cast<char>(c - 'A' + 'a');
        else if (c >= 'a' && c <= 'z')
            lower += c;
        else
            return {};
    }
    return lower;
}

} // namespace

std::string languageFromIso639(std::string_view code)
{
    const std::string letters = lettersOnly(code, 3);
    if (letters.empty()) return std::string(kUndetermined);
    const auto terminology = lookUp(kBibliographic, letters);
    return terminology.empty() ? letters : std::string(terminology);
}

std::string languageFromBcp47(std::string_view tag)
{
    const auto primary = tag.substr(0, tag.find('-'));
    if (primary.size() == 3) return languageFromIso639(primary);
    const auto terminology = lookUp(kTwoLetter, lettersOnly(primary, 2));
    return terminology.empty() ? std::string(kUndetermined) : std::string(terminology);
}

std::uint16_t packedLanguage(std::string_view code)
{
    if (code.size() != 3) code = kUndetermined;
    std::uint16_t packed = 0;
    for (const char c : code)
        packed = static_cast<std::uint16_t>((packed << 5) | ((c - 0x60) & 0x1F));
    return packed;
}

std::string validUtf8(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        // Sequence length and the range of the second byte (which rules out overlong forms,
        // surrogates and code points above U+10FFFF).
        std::size_t length = 0;
        unsigned char low = 0x80, high = 0xBF;
        if (lead < 0x80)
            length = 1;
        else if (lead >= 0xC2 && lead <= 0xDF)
            length = 2;
        else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3;
            if (lead == 0xE0) low = 0xA0;
            if (lead == 0xED) high = 0x9F;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            length = 4;
            if (lead == 0xF0) low = 0x90;
            if (lead == 0xF4) high = 0x8F;
        }
        bool valid = length > 0 && i + length <= text.size();
        for (std::size_t k = 1; valid && k < length; ++k) {
            const auto c = static_cast<unsigned char>(text[i + k]);
            valid = k == 1 ? c >= low && c <= high : (c & 0xC0) == 0x80;
        }
        if (valid) {
            out.append(text.substr(i, length));
            i += length;
        } else {
            out += "\xEF\xBF\xBD";
            ++i;
        }
    }
    return out;
}

std::string cutUtf8(std::string_view text, std::size_t limit)
{
    if (text.size() <= limit) return std::string(text);
    std::size_t cut = limit;
    // Continuation bytes (10xxxxxx) belong to the character before them.
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80)
        --cut;
    return std::string(text.substr(0, cut));
}

} // namespace qv
