// The gate of a red-eye model: decision trees that weigh the classifiers' scores together with the colours of a place.
#ifndef KO_KOHOST_GATE_H
#define KO_KOHOST_GATE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "kohost/evidence.h"

namespace kohost {

// A gate cannot be used; the text names its file.
class GateError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

class Gate {
  public:
    // What the trees look at: the scores of the model's two classifiers, then the evidence.
    static constexpr size_t input_count = 2 + evidence_count;
    using Inputs = std::array<float, input_count>;

    // Reads a file. Throws GateError.
    explicit Gate(const std::string &path);

    // The sum of what the trees say: the logarithm of the odds that the place is a red eye.
    double sum(const Inputs &inputs) const;

    // Sums above the first accept, those under the second reject.
    double accept() const { return accept_; }
    double reject() const { return reject_; }

  private:
    // The root of a tree stands first. An inner node leads to the next one, or past its left branch.
    struct Node {
        int32_t input = -1; // of an inner node, -1 for a leaf
        uint32_t right = 0; // of an inner node: where an input above the value leads
        double value = 0.0;
    };

    double accept_ = 0.0;
    double reject_ = 0.0;
    double base_ = 0.0;
    std::vector<Node> nodes_;
    std::vector<uint32_t> roots_;
};

} // namespace kohost

#endif
