#pragma once
// Inputs are the controls of a tool and its image connections. What an input
// declares at creation (kind, ID, range, default, entries) is kept apart from
// its live state (its source: a constant or keyframes; its label and
// visibility, which the tool may change).
#include "host/FuID.h"
#include "host/Object.h"
#include "host/Parameter.h"
#include "host/Request.h"
#include "host/TagList.h"

#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

class Operator;

struct InputDeclaration {
    FuID ID;
    std::string Label;  // the label at creation
    std::string Page;
    FuID DataType;  // Number, Text or Image
    FuID Control;   // control kind; empty for image connections
    std::vector<std::string> Entries;  // multi-button entries, numbered from 0
    std::optional<double> MinAllowed;
    std::optional<double> MaxAllowed;
    std::optional<double> SliderTop;
    double Default = 0.0;
    std::string DefaultText;
    bool Integer = false;
    bool ReadOnly = false;
    bool Notify = false;
    bool InitialNotify = false;
    bool Visible = true;
    std::int64_t LinkNumber = 0;
    bool Required = true;
    TagList Tags;  // everything as given, unknown tags included

    static InputDeclaration FromTags(const FuID& label, const FuID& id, const std::string& page, const TagList& tags);
    bool IsNumber() const { return DataType == CLSID_DataType_Number; }
    bool IsText() const { return DataType == CLSID_DataType_Text; }
    bool IsImage() const { return DataType == CLSID_DataType_Image; }
    // Empty when v is a value the control accepts, else why it is not.
    std::string CheckNumber(double v) const;

    // The one rule for a value set from outside the tool (the command line, a
    // flow's constants and keys), so every path refuses the same values with
    // the same words. Each returns empty when accepted, else a reason that
    // names the control and says what it takes; the caller prefixes where the
    // value came from.
    //
    // What the control takes, in words: "one of 0 \"Disk\", 1 \"Polygon\" (number or name)".
    std::string AcceptedValues() const;
    // A typed value on a number control: a decimal number (hexadecimal is
    // refused as a likely typo), an entry name of a multi-button (any case,
    // spaces ignored, or a unique beginning: "airy"), or on/off, true/false,
    // yes/no for a checkbox. Sets `out` when accepted; then RefuseNumber(out).
    std::string RefuseTyped(const std::string& text, double& out) const;
    // A number for this control: read-only, not a number control, CheckNumber.
    std::string RefuseNumber(double v) const;
};

// A value refused by the rule above, kept apart from a malformed file so the
// program reports both paths alike.
class ValueRefused : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class Input : public Object {
public:
    Input(Operator* owner, InputDeclaration decl);

    const InputDeclaration& Decl() const { return m_decl; }
    const FuID& ID() const { return m_decl.ID; }
    Operator* Owner() const { return m_owner; }

    // The value at the request's time, owned by the request; null for an
    // image connection with nothing connected.
    Parameter* GetValue(Request* req, int flags = 0);
    // The value at `time` as a new reference (the caller recycles it); null for
    // an unconnected image input.
    Parameter* GetSource(TimeStamp time, const TagList* tags = nullptr);
    // Takes its own reference to `param`. On an animated number the value
    // becomes a key at `time`; otherwise it becomes the constant. A control
    // created with the notify tag then tells its tool.
    virtual bool SetSource(Parameter* param, TimeStamp time, int flags = 0, const TagList* tags = nullptr);

    // Keyframes of a number: linear between keys, constant past the ends.
    bool IsAnimated() const { return !m_keys.empty(); }
    const std::map<double, double>& Keys() const { return m_keys; }
    // Replaces the animation (an empty map makes the input constant again at
    // the value of its first key). Keys do not notify: they describe the
    // value over time rather than change it now.
    void SetKeys(std::map<double, double> keys);

    // A user's animation verbs, the host's one rule for every front end. Each
    // acts at `time` (the current frame) and throws ValueRefused naming the
    // control when it is not a number, is read-only, or `time` is not finite.
    // A control with the notify tag hears of a change of its value at `time`.
    //
    // Keys the value the control has at `time`: a static control becomes
    // animated with that one key; an animated one gains (or keeps) a key
    // there, and its values over time stay as they were.
    void Animate(TimeStamp time);
    // Removes the key at `time`; removing the last one leaves the control
    // static at the value it had. Refused when there is no key at `time`.
    void DeleteKey(TimeStamp time);
    // Makes the control static at its value at `time`; a static one is left as it is.
    void RemoveAnimation(TimeStamp time);

    // What feeds an image input outside the flow (a file name, say); saved
    // with the flow.
    const std::string& Connection() const { return m_connection; }
    void SetConnection(std::string c) { m_connection = std::move(c); }

private:
    double NumberAt(TimeStamp time) const;
    // Why the verbs above cannot act at `time` on this control, or empty.
    std::string RefuseAnimation(TimeStamp time) const;
    void NotifyIfChanged(double before, TimeStamp time);

    Operator* m_owner;
    InputDeclaration m_decl;
    Ref<Parameter> m_constant;
    std::map<double, double> m_keys;
    std::string m_connection;
};

class Output : public Object {
public:
    Output(Operator* owner, InputDeclaration decl) : m_owner(owner), m_decl(std::move(decl)) {}
    Operator* Owner() const { return m_owner; }
    const InputDeclaration& Decl() const { return m_decl; }
    const FuID& ID() const { return m_decl.ID; }

    // Takes over the caller's reference to `value` as the output of `req`.
    void Set(Request* req, Parameter* value, const TagList* tags = nullptr);
    // The value set for the last request, still owned by the output.
    Parameter* GetValue() const { return m_value.get(); }
    // Hands the value over to the caller and forgets it.
    Ref<Parameter> Take() { return std::move(m_value); }
    void Clear() { m_value = Ref<Parameter>(); }

private:
    Operator* m_owner;
    InputDeclaration m_decl;
    Ref<Parameter> m_value;
};
