#include "gegl_graph.h"

#include <cstdint>
#include <string>

#include "race.h"

namespace ko_peers {

namespace {

constexpr uint64_t tile_cache_bytes = uint64_t{8} << 30; // so that no tile goes to the library's file on disk

struct UnrefNode {
    void operator()(GeglNode *node) const { g_object_unref(node); }
};

// Sets a property of whichever type of number it has.
void set_number(GeglNode *node, const char *name, double number) {
    const GParamSpec *property = gegl_node_find_property(node, name);
    require(property != nullptr, std::string("GEGL has no property ") + name);
    if (G_IS_PARAM_SPEC_ENUM(property)) {
        gegl_node_set(node, name, static_cast<int>(number), nullptr);
    } else {
        gegl_node_set(node, name, number, nullptr);
    }
}

} // namespace

GeglSession::GeglSession() {
    // GEGL offers operations under a licence only to applications that declare it.
    g_object_set(gegl_config(), "threads", 1, "use-opencl", FALSE, "tile-cache-size", tile_cache_bytes, "application-license",
                 "GPL3", nullptr);
    gegl_init(nullptr, nullptr);
}

GeglPicture::GeglPicture(const cv::Mat &pixels, const char *format)
    : extent_{0, 0, pixels.cols, pixels.rows}, format_(babl_format(format)), buffer_(gegl_buffer_new(&extent_, format_)) {
    require(pixels.isContinuous(), "gaps behind the rows");
    gegl_buffer_set(buffer_.get(), &extent_, 0, format_, pixels.data, GEGL_AUTO_ROWSTRIDE);
}

void GeglPicture::run(const char *operation, const std::vector<std::pair<const char *, double>> &properties,
                      cv::Mat &output) const {
    const std::unique_ptr<GeglNode, UnrefNode> graph(gegl_node_new());
    GeglNode *source = gegl_node_new_child(graph.get(), "operation", "gegl:buffer-source", "buffer", buffer_.get(), nullptr);
    GeglNode *node = gegl_node_new_child(graph.get(), "operation", operation, nullptr);
    for (const auto &[name, number] : properties) {
        set_number(node, name, number);
    }
    gegl_node_link(source, node);
    gegl_node_blit(node, 1.0, &extent_, format_, output.data, GEGL_AUTO_ROWSTRIDE, GEGL_BLIT_DEFAULT);
}

} // namespace ko_peers
