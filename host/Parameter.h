#pragma once
// Values that flow through inputs and outputs.
#include "host/FuID.h"
#include "host/Object.h"

#include <string>

class Parameter : public Object {
public:
    virtual const FuID& DataType() const = 0;
};

class Number : public Parameter {
public:
    explicit Number(double v = 0.0) : m_value(v) {}
    const FuID& DataType() const override { return CLSID_DataType_Number; }
    operator double() const { return m_value; }
    double Value() const { return m_value; }

private:
    double m_value;
};

class Text : public Parameter {
public:
    explicit Text(std::string v = {}) : m_value(std::move(v)) {}
    const FuID& DataType() const override { return CLSID_DataType_Text; }
    operator const std::string&() const { return m_value; }
    const std::string& Value() const { return m_value; }

private:
    std::string m_value;
};
