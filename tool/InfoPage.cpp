#include "tool/InfoPage.h"

#include "host/Operator.h"
#include "host/Tags.h"
#include "tool/Identity.h"

namespace {

struct InfoEntry {
    const char* id;
    const char* label;
    const char* text;
};

constexpr InfoEntry kInfo[] = {
    {"CompanyName", "Company name", lumivane::kCompany},
    {"PackageName", "Package name", lumivane::kCategory},
    {"PluginName", "Plugin name", lumivane::kDisplayName},
    {"DocUrl", "Documentation URL", lumivane::kDocUrl},
};

}  // namespace

void info_interface::CreateInfoPage(Operator* op)
{
    op->AddControlPage("Info", 0);
    for (const InfoEntry& e : kInfo)
        op->AddInput(FuID(e.label), FuID(e.id),
                     {{LINKID_DataType, CLSID_DataType_Text}, {INPID_InputControl, TextEditControlID},
                      {INP_DefaultText, e.text}, {TEC_Lines, 1}, {TEC_ReadOnly, 1}, {TAG_DONE}});
}
