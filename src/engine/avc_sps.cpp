#include "avc_sps.h"

#include "bit_cursor.h"
#include "engine_limits.h"
#include "failure.h"

#include <vector>

namespace qv {
namespace {

using Cursor = BitCursor;

constexpr std::uint8_t kSpsNalType = 7;

// Profiles whose parameter sets carry chroma format, bit depths and scaling matrices.
bool hasChromaInfo(std::uint32_t profile)
{
    switch (profile) {
    case 100:
    case 110:
    case 122:
    case 244:
    case 44:
    case 83:
    case 86:
    case 118:
    case 128:
    case 138:
    case 139:
    case 134:
    case 135:
        return true;
    default:
        return false;
    }
}

std::vector<std::uint8_t> unescape(std::span<const std::uint8_t> nal)
{
    std::vector<std::uint8_t> out;
    out.reserve(nal.size());
    unsigned zeros = 0;
    for (std::uint8_t byte : nal) {
        if (zeros >= 2 && byte == 3) {
            zeros = 0;
            continue;
        }
        zeros = byte == 0 ? zeros + 1 : 0;
        out.push_back(byte);
    }
    return out;
}

void skipScalingList(Cursor& bits, int size)
{
    int last = 8;
    int next = 8;
    for (int j = 0; j < size; ++j) {
        if (next != 0) {
            const std::int64_t delta = bits.se();
            require(delta >= -128 && delta <= 127);
            next = static_cast<int>((last + delta + 256) % 256);
        }
        last = next == 0 ? last : next;
    }
}

} // namespace

AvcPictureSize avcPictureSize(std::span<const std::uint8_t> nal)
{
    require(!nal.empty());
    require((nal[0] & 0x80) == 0 && (nal[0] & 0x1F) == kSpsNalType);
    const std::vector<std::uint8_t> rbsp = unescape(nal.subspan(1));
    Cursor bits(rbsp);

    const auto profile = static_cast<std::uint32_t>(bits.bits(8));
    bits.skip(16); // constraint flags, level
    require(bits.ue() <= 31);

    std::uint32_t chromaFormat = 1;
    bool separatePlanes = false;
    if (hasChromaInfo(profile)) {
        chromaFormat = bits.ue();
        require(chromaFormat <= 3);
        if (chromaFormat == 3) separatePlanes = bits.flag();
        require(bits.ue() <= 6); // luma bit depth - 8
        require(bits.ue() <= 6); // chroma bit depth - 8
        bits.skip(1);
        if (bits.flag()) {
            const int lists = chromaFormat == 3 ? 12 : 8;
            for (int i = 0; i < lists; ++i)
                if (bits.flag()) skipScalingList(bits, i < 6 ? 16 : 64);
        }
    }
    require(bits.ue() <= 12); // log2 of max frame number - 4
    const std::uint32_t pocType = bits.ue();
    require(pocType <= 2);
    if (pocType == 0) {
        require(bits.ue() <= 12);
    } else if (pocType == 1) {
        bits.skip(1);
        bits.se();
        bits.se();
        const std::uint32_t cycle = bits.ue();
        require(cycle <= 255);
        for (std::uint32_t i = 0; i < cycle; ++i)
            bits.se();
    }
    bits.ue(); // max reference frames
    bits.skip(1);
    const std::uint64_t widthMbs = std::uint64_t{bits.ue()} + 1;
    const std::uint64_t heightUnits = std::uint64_t{bits.ue()} + 1;
    const bool frameMbsOnly = bits.flag();
    if (!frameMbsOnly) bits.skip(1); // adaptive frame/field
    bits.skip(1);                    // direct 8x8 inference

    std::uint64_t cropLeft = 0, cropRight = 0, cropTop = 0, cropBottom = 0;
    if (bits.flag()) {
        cropLeft = bits.ue();
        cropRight = bits.ue();
        cropTop = bits.ue();
        cropBottom = bits.ue();
    }

    const std::uint64_t fieldFactor = frameMbsOnly ? 1 : 2;
    const std::uint32_t arrayType = separatePlanes ? 0 : chromaFormat;
    const std::uint64_t subWidth = (arrayType == 1 || arrayType == 2) ? 2 : 1;
    const std::uint64_t subHeight = arrayType == 1 ? 2 : 1;
    const std::uint64_t unitX = arrayType == 0 ? 1 : subWidth;
    const std::uint64_t unitY = (arrayType == 0 ? 1 : subHeight) * fieldFactor;

    // Every factor is below 2^33, so the products cannot overflow 64 bits.
    const std::uint64_t width = widthMbs * 16;
    const std::uint64_t height = heightUnits * 16 * fieldFactor;
    const std::uint64_t cropX = (cropLeft + cropRight) * unitX;
    const std::uint64_t cropY = (cropTop + cropBottom) * unitY;
    require(cropX < width && cropY < height);
    const std::uint64_t shownWidth = width - cropX;
    const std::uint64_t shownHeight = height - cropY;
    require(shownWidth < limits::kMaxDimension && shownHeight < limits::kMaxDimension);
    return {static_cast<std::uint32_t>(shownWidth), static_cast<std::uint32_t>(shownHeight)};
}

std::span<const std::uint8_t> avcFirstSps(std::span<const std::uint8_t> record)
{
    require(record.size() >= 8 && record[0] == 1 && (record[5] & 0x1F) != 0, kUnsupported);
    const std::size_t length = (std::size_t{record[6]} << 8) | record[7];
    require(length >= 4 && length <= record.size() - 8);
    require((record[8] & 0x1F) == kSpsNalType);
    return record.subspan(8, length);
}

} // namespace qv
