// GEGL on one thread: pictures as its buffers, and one operation at a time on them.
#ifndef KO_BENCH_PEERS_GEGL_GRAPH_H
#define KO_BENCH_PEERS_GEGL_GRAPH_H

#include <memory>
#include <utility>
#include <vector>

#include <gegl.h>
#include <opencv2/core.hpp>

namespace ko_peers {

// Starts the library on one thread, without graphics processors; ends it with the object.
class GeglSession {
  public:
    GeglSession();
    ~GeglSession() { gegl_exit(); }
    GeglSession(const GeglSession &) = delete;
    GeglSession &operator=(const GeglSession &) = delete;
};

// A picture in the library's own tiles, to be made before the time runs.
class GeglPicture {
  public:
    // The format names the pixels of the matrix, which has no gaps behind its rows.
    GeglPicture(const cv::Mat &pixels, const char *format);

    // Runs one operation with the given properties, written as numbers, and fills output. The graph is made anew, so that
    // no cache holds an earlier result.
    void run(const char *operation, const std::vector<std::pair<const char *, double>> &properties, cv::Mat &output) const;

  private:
    struct Unref {
        void operator()(GeglBuffer *buffer) const { g_object_unref(buffer); }
    };

    GeglRectangle extent_;
    const Babl *format_;
    std::unique_ptr<GeglBuffer, Unref> buffer_;
};

} // namespace ko_peers

#endif
