// Subtracts a bias through an overload, which C++ hosts alone have, and says which version did it.
#include <korva_reference_api.h>

#include <cstdio>

int main() {
  float const in[4] = {6.0f, 7.0f, 10.0f, 11.0f};
  float const bias[4] = {1.0f, 1.0f, 1.0f, 1.0f};
  float out[4];
  KORVA_Ref_RC_CorrectBias(out, in, bias, 4);
  std::printf("%d.%d.%d: %g %g %g %g\n", KORVA_REFERENCE_API_VERSION_MAJOR, KORVA_REFERENCE_API_VERSION_MINOR,
              KORVA_REFERENCE_API_VERSION_PATCH, out[0], out[1], out[2], out[3]);
}
