// The tool's entry in the host's class registry, made when the module is loaded
// and removed when it is unloaded.
#include "host/Registry.h"
#include "host/ScriptInfo.h"
#include "host/Tags.h"
#include "tool/Identity.h"
#include "tool/Lumivane2.h"
#include "tool/Registration.h"

namespace {

ScriptInfoT<Lumivane2> g_scriptInfo(1, lumivane::kClassId, "", "");
const FuID g_classId(lumivane::kClassId, true);
Registry g_registry(&ClassRegistry, g_classId,
                    {{REGP_RegInit, &Operator::RegInit},
                     {REGP_RegCleanup, &Operator::RegCleanup},
                     {REGI_ClassType, CT_Tool},
                     {REGS_BuildStamp, lumivane::kBuildStamp},
                     {REGP_BaseClassID, static_cast<const void*>(&ThreadedOperator::ClassID)},
                     {REGP_ScriptInfo, static_cast<const void*>(&g_scriptInfo)},
                     {REGP_CreateFunc, &CreateLumivane2},
                     {REGS_Name, lumivane::kDisplayName},
                     {REGI_Version, lumivane::kRegistryVersion},
                     {REGS_Category, lumivane::kCategory},
                     {REGS_OpIconString, lumivane::kShortName},
                     {REGS_OpDescription, lumivane::kDescription},
                     {REGS_AboutDescription, lumivane::kAbout},
                     {REGS_Company, lumivane::kCompany},
                     {REGI_DataVersion, lumivane::kRegistryVersion},
                     {REGS_HelpURL, lumivane::kDocUrl},
                     {TAG_DONE}});

}  // namespace

// Lets a program that links the core statically make sure this file is kept.
const Registry* Lumivane2Registry() { return &g_registry; }
