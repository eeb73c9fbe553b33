// Products of matrices of double from the libraries that were found when building.
#pragma once

#include <vector>

namespace korva::benchmarks {

struct ProductPeer {
  char const* name;
  // out = a * b, or a * b^T: row after row without gaps, out of rows x columns, the sums over `inner` products.
  void (*multiply)(double* out, double const* a, double const* b, int rows, int columns, int inner, bool isTransposed);
};

std::vector<ProductPeer> productPeers();

}  // namespace korva::benchmarks
