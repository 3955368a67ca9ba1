// A wide blur as OpenCV does it fastest: three box filters, whose cost does not grow with their width.
#ifndef KO_BENCH_PEERS_BOXES_H
#define KO_BENCH_PEERS_BOXES_H

#include <opencv2/core.hpp>

namespace ko_peers {

// Blurs a plane of floats by boxes of the odd width that together come nearest to the standard deviation sigma. The output is
// created if it is empty, and may be the input.
void blur_by_boxes(const cv::Mat &input, double sigma, cv::Mat &output);

} // namespace ko_peers

#endif
