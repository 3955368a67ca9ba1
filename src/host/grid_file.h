// Files of grids of tone curves.
#ifndef KO_HOST_GRID_FILE_H
#define KO_HOST_GRID_FILE_H

#include <array>
#include <filesystem>

#include "ko.hpp"

namespace host {

enum class GridForm : int32_t { text = KO_TILETRC_TEXT, binary = KO_TILETRC_BINARY, encoded = KO_TILETRC_ENCODED };

// "text", "binary", "encoded".
const char *name(GridForm form);
inline constexpr std::array<GridForm, 3> grid_forms = {GridForm::text, GridForm::binary, GridForm::encoded};

// Both throw FileError or ko::Error.

// Saves a grid and reads it back: a form that does not hold these curves is refused, and the target stays as it was.
void save_grid(const TileTRC &curves, GridForm form, const std::filesystem::path &target);

// Loads a grid of any form. It is sure to have tiles, and curves of at least the 256 entries that byte pictures need.
ko::TileTRCPtr load_grid(const std::filesystem::path &path);

// Throws if the grid has tiles too small for a picture of this size: several tiles in a direction need two pixels each.
void check_fit(const TileTRC &curves, uint64_t width, uint64_t height);

} // namespace host

#endif
