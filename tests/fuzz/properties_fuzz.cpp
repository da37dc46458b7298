// The reader of the properties text: any text can be read, and what the ports say is read back.
// Input: a board code and a header value of one word each, then the text.

#include "apps/padtune/board_properties.h"

#include "lib/hardware/board_identity.h"
#include "tests/fuzz/fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const auto boardCode = input.Take<std::uint32_t>();
    const auto header = input.Take<std::uint32_t>();
    const std::string text = input.TakeRest();

    const BoardProperties board = BoardProperties::Parse(text);
    for (const std::string& value : {board.model, board.revision}) {
        REQUIRE(value.find_first_of(";=") == std::string::npos);
        REQUIRE(text.find(value) != std::string::npos);
    }
    REQUIRE(board.rawHeader == -1 || text.find("rheader") != std::string::npos);

    using namespace ExternalControl::Impl;
    const std::uint32_t model = DecodeBoardModel(boardCode, header).value_or(MODEL_UNKNOWN);
    const std::string properties = FormatBoardProperties(model, header);
    const BoardProperties known = BoardProperties::Parse(properties);
    REQUIRE(known.model.empty() == (model == MODEL_UNKNOWN));
    REQUIRE(known.hasHeader == (model == 121));
    if (model != MODEL_UNKNOWN) {
        REQUIRE(known.rawHeader == static_cast<int>(header));
        // A key that comes again counts, whatever came before.
        const BoardProperties repeated = BoardProperties::Parse(text + ";" + properties);
        REQUIRE(repeated.model == known.model && repeated.revision == known.revision);
        REQUIRE(repeated.rawHeader == known.rawHeader && repeated.hasHeader == known.hasHeader);
    }
    return 0;
}
