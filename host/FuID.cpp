#include "host/FuID.h"

const FuID CLSID_DataType_Number("Number");
const FuID CLSID_DataType_Text("Text");
const FuID CLSID_DataType_Image("Image");
const FuID MultiButtonControlID("MultiButtonControl");
const FuID SliderControlID("SliderControl");
const FuID CheckboxControlID("CheckboxControl");
const FuID TextEditControlID("TextEditControl");
