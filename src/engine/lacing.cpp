#include "lacing.h"

#include "ebml.h"
#include "engine_limits.h"
#include "failure.h"

namespace qv {

void splitLaces(Reader& reader, std::uint64_t position, std::uint64_t end, Lacing lacing,
                Frames& frames)
{
    require(position <= end);
    frames.sizes.clear();
    if (lacing == Lacing::None) {
        frames.dataStart = position;
        frames.sizes.push_back(end - position);
        return;
    }
    require(position < end);
    const std::uint64_t count = std::uint64_t(reader.byte(position)) + 1;
    ++position;
    frames.sizes.reserve(count);
    std::uint64_t laced = 0; // sum of the explicit sizes
    if (lacing == Lacing::Xiph) {
        for (std::uint64_t i = 0; i + 1 < count; ++i) {
            std::uint64_t size = 0;
            std::uint8_t b;
            do {
                require(position < end);
                b = reader.byte(position++);
                size += b;
            } while (b == 0xFF);
            require(size <= end - position);
            frames.sizes.push_back(size);
            laced += size;
        }
    } else if (lacing == Lacing::Ebml && count > 1) {
        const auto first = ebml::vint(reader, position, end, false);
        require(!first.unknown);
        position += first.length;
        std::int64_t size = static_cast<std::int64_t>(first.value);
        require(first.value <= end);
        frames.sizes.push_back(first.value);
        laced = first.value;
        for (std::uint64_t i = 1; i + 1 < count; ++i) {
            const auto raw = ebml::vint(reader, position, end, false);
            position += raw.length;
            // Differences are stored with a bias that centres the range on zero.
            const std::int64_t bias = (std::int64_t(1) << (7 * raw.length - 1)) - 1;
            size += static_cast<std::int64_t>(raw.value) - bias;
            require(size >= 0 && static_cast<std::uint64_t>(size) <= end);
            frames.sizes.push_back(static_cast<std::uint64_t>(size));
            laced += static_cast<std::uint64_t>(size);
            require(laced <= end);
        }
    } else if (lacing == Lacing::Fixed) {
        const std::uint64_t rest = end - position;
        require(rest % count == 0);
        frames.dataStart = position;
        frames.sizes.assign(count, rest / count);
        return;
    }
    require(position <= end && laced <= end - position);
    frames.dataStart = position;
    frames.sizes.push_back(end - position - laced);
}

} // namespace qv
