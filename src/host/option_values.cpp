#include "option_values.h"

namespace host {

namespace {

constexpr uint64_t most_strips = 256;
constexpr uint64_t largest_curve = 4096;       // the time of the fit grows with the square
constexpr double smallest_working_size = 0.01; // in megapixels
constexpr double largest_working_size = 250.0;

} // namespace

kohost::Grid parse_grid(const std::string &argument) {
    const size_t cross = argument.find('x');
    const std::string_view text = argument;
    const auto columns = parse<uint64_t>(text.substr(0, cross));
    const auto rows = cross == std::string::npos ? std::nullopt : parse<uint64_t>(text.substr(cross + 1));
    const auto sensible = [](std::optional<uint64_t> strips) { return strips && *strips >= 1 && *strips <= most_strips; };
    if (!sensible(columns) || !sensible(rows)) {
        throw CLI::ValidationError("--grid", "'" + argument + "' is not a grid such as 8x8, 1 to " +
                                                 std::to_string(most_strips) + " tiles each way");
    }
    return {*columns, *rows};
}

uint64_t parse_curve_size(const std::string &argument) {
    const auto size = parse<uint64_t>(argument);
    if (!size || *size < curve_step || *size > largest_curve || *size % curve_step != 0) {
        throw CLI::ValidationError("--curve-size", "'" + argument + "' is not a multiple of " + std::to_string(curve_step) +
                                                       " from " + std::to_string(curve_step) + " to " +
                                                       std::to_string(largest_curve));
    }
    return *size;
}

uint64_t parse_working_area(const std::string &argument) {
    if (argument == "full") {
        return UINT64_MAX;
    }
    const auto megapixels = parse<double>(argument);
    if (!megapixels || !(*megapixels >= smallest_working_size && *megapixels <= largest_working_size)) {
        throw CLI::ValidationError("--working-size", "'" + argument + "' is neither a number from 0.01 to 250 nor 'full'");
    }
    return static_cast<uint64_t>(*megapixels * 1e6);
}

} // namespace host
