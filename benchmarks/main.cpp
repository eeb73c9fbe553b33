// All rows in one program: korva_benchmark [--scaling] [options of Google Benchmark].
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include "opencv_peer.h"
#ifdef KORVA_WITH_OPENBLAS
#include <cblas.h>
#endif

int main(int argc, char** argv) {
  using namespace korva::benchmarks;
  for (int k = 1; k < argc; ++k) {
    if (std::strcmp(argv[k], "--scaling") != 0) continue;
    measureScaling();
    for (--argc; k < argc; ++k) argv[k] = argv[k + 1];
  }

#if defined(__clang__)
  benchmark::AddCustomContext("compiler", "clang++ " __clang_version__);
#else
  benchmark::AddCustomContext("compiler", "g++ " __VERSION__);
#endif
#ifdef KORVA_WITH_OPENCV
  cv::setNumThreads(1);
  // The last instruction set that it dispatches to and that the processor has.
  std::string dispatch = cv::getCPUFeaturesLine();
  while (dispatch.ends_with('?')) dispatch.erase(dispatch.rfind(' '));
  benchmark::AddCustomContext("OpenCV", CV_VERSION " up to " + dispatch.substr(dispatch.rfind('*') + 1));
#endif
#ifdef KORVA_WITH_OPENBLAS
  openblas_set_num_threads(1);
  std::string const openBlas = openblas_get_config();
  char const* const forced = std::getenv("OPENBLAS_CORETYPE");
  benchmark::AddCustomContext("OpenBLAS", openBlas.substr(openBlas.find(' ') + 1, 6) + " as " +
                                              openblas_get_corename() + (forced ? ", forced" : ", its own choice"));
#endif
#ifdef KORVA_WITH_EIGEN
  benchmark::AddCustomContext("Eigen", KORVA_WITH_EIGEN);
#endif

  benchmark::AddCustomContext("vectors", loadLibraries());
  registerMachineLimits();
  registerCubeGeneration();
  registerReflectanceCalculation();
  registerSpectralCorrection();
  registerDemosaicing();
  registerMedianFiltering();
  registerImageOperations();
  registerRgbxDemosaicing();
  registerRgbxNewWli();
  registerRoads();

  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
}
