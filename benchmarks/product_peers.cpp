// Compiled for this machine with fused multiply-add, so that Eigen uses the widest vectors there are.
#include "product_peers.h"

#ifdef KORVA_WITH_OPENBLAS
#include <cblas.h>
#endif
#ifdef KORVA_WITH_EIGEN
#include <Eigen/Core>
#endif

namespace korva::benchmarks {
namespace {

#ifdef KORVA_WITH_OPENBLAS
void multiplyByOpenBlas(double* out, double const* a, double const* b, int rows, int columns, int inner,
                        bool isTransposed) {
  if (rows == 1 && isTransposed) {
    cblas_dgemv(CblasRowMajor, CblasNoTrans, columns, inner, 1, b, inner, a, 1, 0, out, 1);
  } else {
    cblas_dgemm(CblasRowMajor, CblasNoTrans, isTransposed ? CblasTrans : CblasNoTrans, rows, columns, inner, 1, a,
                inner, b, isTransposed ? inner : columns, 0, out, columns);
  }
}
#endif

#ifdef KORVA_WITH_EIGEN
using Matrix = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
using Input = Eigen::Map<Matrix const>;

void multiplyByEigen(double* out, double const* a, double const* b, int rows, int columns, int inner,
                     bool isTransposed) {
  if (rows == 1 && isTransposed) {
    Eigen::Map<Eigen::VectorXd>(out, columns).noalias() =
        Input(b, columns, inner) * Eigen::Map<Eigen::VectorXd const>(a, inner);
  } else if (isTransposed) {
    Eigen::Map<Matrix>(out, rows, columns).noalias() = Input(a, rows, inner) * Input(b, columns, inner).transpose();
  } else {
    Eigen::Map<Matrix>(out, rows, columns).noalias() = Input(a, rows, inner) * Input(b, inner, columns);
  }
}
#endif

}  // namespace

std::vector<ProductPeer> productPeers() {
  return {
#ifdef KORVA_WITH_OPENBLAS
      {"OpenBLAS", multiplyByOpenBlas},
#endif
#ifdef KORVA_WITH_EIGEN
      {"Eigen", multiplyByEigen},
#endif
  };
}

}  // namespace korva::benchmarks
