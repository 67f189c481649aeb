#pragma once
// Control settings from the command line: "--set ControlID=VALUE", the
// friendly options (--size, --style, ...), which stand for one or two such
// settings, and "--key ControlID=FRAME:VALUE". They are applied in the order
// they were given, each through Input::SetSource, so a control created with
// the notify tag tells its tool just as a user's edit would (releasing a lock
// copies sizes, for one).
#include "host/Operator.h"
#include "host/Request.h"

#include <string>
#include <vector>

struct Setting {
    std::string id;
    std::string value;   // as typed: a number, an entry name, on/off
    std::string origin;  // how the user wrote it, for messages ("--style airy")
    // Where the value lands on an animated control:
    //   Constant  replaces the animation: the value at every frame (--set; the
    //             command line has no current frame to key)
    //   AtTime    the host's rule at the time ApplySettings is given: a key
    //             there when animated, else the static value (the live page)
    //   Key       a key at `frame`; a static control becomes animated (--key)
    enum class Apply { Constant, AtTime, Key } apply = Apply::Constant;
    double frame = 0.0;  // of a Key
};

// "ID=VALUE". Throws a usage ProgramError when there is no '=' or no ID.
Setting ParseSetArgument(const std::string& arg);
// "ID=FRAME:VALUE", a Key. Throws a usage ProgramError when it is not of that
// shape or FRAME is not a finite decimal number.
Setting ParseKeyArgument(const std::string& arg);

// What the controls accept, in words: "one of 0 \"Disk\", 1 \"Polygon\" (number or name)".
std::string AcceptedValues(const InputDeclaration& decl);

// The number `text` stands for on a number control, by the host's rule for a
// value from any path (InputDeclaration::RefuseTyped, which flows follow too).
// Throws a usage ProgramError naming `origin`, the control and what it accepts.
double ResolveNumber(const InputDeclaration& decl, const std::string& text, const std::string& origin);

// The control `id` of the tool; a usage ProgramError naming `origin` and
// listing the tool's controls when it has none of that ID.
Input& FindControl(const Operator& tool, const std::string& id, const std::string& origin);

// Applies the settings in order at `time` (a Key at its own frame), each as
// its `apply` says. Throws a usage ProgramError for an unknown control
// (listing the tool's controls), an image input, a read-only control, a value
// the control does not accept or a key on a control that takes none; settings
// before it stay applied.
void ApplySettings(Operator& tool, const std::vector<Setting>& settings, TimeStamp time);
