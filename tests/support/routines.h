// Every processing routine beside its plain definition.
#ifndef KORVA_TESTS_SUPPORT_ROUTINES_H
#define KORVA_TESTS_SUPPORT_ROUTINES_H

#include "support/cases.h"
#include "support/plain_definitions.h"

namespace korva::test::routine {

#define KORVA_ROUTINE(name, definition) \
  inline Routine<decltype(KORVA_Ref_##name)> const name{"KORVA_Ref_" #name, KORVA_Ref_##name, plain::name};
KORVA_PROCESSING_ROUTINES(KORVA_ROUTINE)
#undef KORVA_ROUTINE

}  // namespace korva::test::routine

#endif
