// Fuzzing of the identity memory, which the maker of a board wrote: any bytes give texts, and no group reads
// past the memory.

#include "fuzz.h"
#include "platform/ident.h"

#include <algorithm>

namespace {

using Decoder = std::string (*)(qvcd::IdentBytes);
constexpr Decoder kDecoders[] = {nullptr,
                                 qvcd::ident_read_build,
                                 qvcd::ident_read_outputs,
                                 qvcd::ident_read_inputs,
                                 qvcd::ident_read_audio_outputs,
                                 qvcd::ident_read_audio_inputs};
constexpr int kMostBytes = 256; // of the texts of 125 bytes: the longest word of a connector, once a byte

void read_group(const qvcd::IdentData &data, int group)
{
    const auto bytes = qvcd::qv_ident_find_group(data, group);
    if (bytes) {
        require(bytes->data() >= data.data() && bytes->data() + bytes->size() <= data.data() + data.size());
        qvcd::ident_read_number(*bytes, qvcd::kIdentBuildOffset);
        qvcd::ident_read_number(*bytes, qvcd::kIdentSerialOffset);
    }
    for (const Decoder decoder : kDecoders) {
        const std::string before = "as it was";
        std::string text = before;
        const qvcd::IdentText result = qvcd::qv_ident_read_group_using_data(data, group, decoder, text);
        require(bytes || result == qvcd::IdentText::none);
        require(result == qvcd::IdentText::text || text == before);
        require(decoder || text.find('\0') == std::string::npos);
        require(text.size() <= qvcd::kIdentBytes * std::size_t{kMostBytes});
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size)
{
    qvcd::IdentData data{};
    std::copy_n(bytes, std::min(size, data.size()), data.begin());
    for (int group = 0; group < 256; ++group)
        read_group(data, group);
    return 0;
}
