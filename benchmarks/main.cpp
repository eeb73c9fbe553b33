// All rows in one program: korva_benchmark [--scaling] [options of Google Benchmark].
#include <benchmark/benchmark.h>

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
  benchmark::AddCustomContext("OpenCV", CV_VERSION);
#endif
#ifdef KORVA_WITH_OPENBLAS
  openblas_set_num_threads(1);
  std::string const openBlas = openblas_get_config();
  benchmark::AddCustomContext("OpenBLAS", openBlas.substr(openBlas.find(' ') + 1, 6));
#endif

  loadLibraries();
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
