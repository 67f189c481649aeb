#pragma once
// The host's tag numbers, named. The numbers are fixed by the host.
#include "host/TagList.h"

// Registry entries.
constexpr Tag REGP_RegInit = 0x60000001;
constexpr Tag REGP_RegCleanup = 0x60000002;
constexpr Tag REGI_ClassType = 0x10000000;
constexpr Tag REGS_BuildStamp = 0x30000008;
constexpr Tag REGP_BaseClassID = 0x60000011;
constexpr Tag REGP_ScriptInfo = 0x60000005;
constexpr Tag REGP_CreateFunc = 0x60000000;
constexpr Tag REGS_Name = 0x30000002;
constexpr Tag REGI_Version = 0x10000004;
constexpr Tag REGS_Category = 0x30000003;
constexpr Tag REGS_OpIconString = 0x30000004;
constexpr Tag REGS_OpDescription = 0x30000005;
constexpr Tag REGS_AboutDescription = 0x30000007;
constexpr Tag REGS_Company = 0x30000009;
constexpr Tag REGI_DataVersion = 0x10000017;
constexpr Tag REGS_HelpURL = 0x3000000a;
constexpr int CT_Tool = 3;

// Inputs and controls.
constexpr Tag LINKID_DataType = 0x88020000;
constexpr Tag INPID_InputControl = 0x80030000;
constexpr Tag MBTNC_AddButton = 0x38040000;
constexpr Tag INP_MinAllowed = 0x20030000;
constexpr Tag INP_MaxAllowed = 0x20030001;
constexpr Tag INP_MaxScale = 0x20030003;
constexpr Tag INP_Default = 0x20030004;
constexpr Tag INP_DefaultText = 0x30030003;
constexpr Tag INP_DoNotifyChanged = 0x1003000a;
constexpr Tag INP_Integer = 0x1003000c;
constexpr Tag INP_InitialNotify = 0x1003000e;
constexpr Tag MBTNC_StretchToFit = 0x1005000a;
constexpr Tag IC_Visible = 0x10040008;
constexpr Tag LINKS_Name = 0x30040000;
constexpr Tag LINK_Main = 0x10020001;
constexpr Tag INP_Priority = 0x10030004;
constexpr Tag INP_Required = 0x10030002;
constexpr Tag TEC_ReadOnly = 0x10050000;
constexpr Tag TEC_Lines = 0x10050002;

// Images.
constexpr Tag IMG_Like = 0x60020000;
constexpr Tag IMG_Width = 0x10020000;
constexpr Tag IMG_Height = 0x10020001;
constexpr Tag IMG_Depth = 0x10020002;
constexpr Tag RSZ_Width = 0x10000000;
constexpr Tag RSZ_Height = 0x10000001;
constexpr Tag RSZ_Filter = 0x10000003;

// Tags of this host's own making (not used by tools).
constexpr Tag OBJP_Document = 0x6ff00001;  // the FusionDoc a new tool belongs to
