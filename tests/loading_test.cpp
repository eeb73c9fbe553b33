#include <dlfcn.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "support/call_conditions.h"

namespace korva::test {
namespace {

TEST(Loading, LeavesTheFloatingPointModeAndFindsEverySymbol) {
  FloatingPointMode const before = floatingPointMode();
  void* const library = dlopen(KORVA_LIBRARY_FILE, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  EXPECT_EQ(floatingPointMode(), before);

  std::ifstream symbols(KORVA_EXPORTED_SYMBOLS);
  int found = 0;
  for (std::string symbol; std::getline(symbols, symbol); ++found)
    EXPECT_NE(dlsym(library, symbol.c_str()), nullptr) << symbol;
  EXPECT_EQ(found, 69);
  EXPECT_EQ(dlclose(library), 0);
  EXPECT_EQ(floatingPointMode(), before);
}

}  // namespace
}  // namespace korva::test
