#include "SoakModel.h"

namespace {

constexpr int int32Kind = 2;
constexpr int int64Kind = 3;
constexpr int float32Kind = 4;
constexpr int float64Kind = 5;
constexpr int shortTextKind = 9; // 32 characters

constexpr std::array kinds = {int32Kind, float64Kind, shortTextKind, int64Kind, float32Kind};

std::string textOf(int32_t number)
{
    return number == 0 ? std::string() : "value " + std::to_string(number);
}

} // namespace

std::string soakAttributeName(int attribute)
{
    return "soak" + std::to_string(attribute);
}

int soakAttributeType(int attribute)
{
    return kinds[static_cast<std::size_t>(attribute) % kinds.size()];
}

UniVar soakValue(int attribute, int32_t number)
{
    switch (soakAttributeType(attribute)) {
    case int64Kind:
        return UniVar(int64_t{number} << 20);
    case float32Kind:
        return UniVar(static_cast<float>(number & 0xFFFFFF));
    case float64Kind:
        return UniVar(number / 8.0);
    case shortTextKind:
        return UniVar(textOf(number));
    default:
        return UniVar(number);
    }
}

bool isSoakValue(int attribute, const UniVar& value, int32_t number)
{
    const UniVar expected = soakValue(attribute, number);
    switch (soakAttributeType(attribute)) {
    case int64Kind:
        return value.getI64Value() == expected.getI64Value();
    case float32Kind:
        return value.getF32Value() == expected.getF32Value();
    case float64Kind:
        return value.getF64Value() == expected.getF64Value();
    case shortTextKind:
        return value.getStrValue() == textOf(number);
    default:
        return value.getI32Value() == number;
    }
}

void SoakSet::define(int attribute)
{
    bool& known = has[static_cast<std::size_t>(attribute)];
    if (known)
        return;
    known = true;
    attributes.push_back(attribute);
}

void SoakPager::touch(SoakTrace* trace)
{
    if (trace->inOrder)
        order.erase(trace->place);
    else if (!trace->resident)
        takeIn(trace);
    order.push_front(trace);
    trace->place = order.begin();
    trace->inOrder = true;
    while (static_cast<int64_t>(order.size()) > limit) {
        SoakTrace* last = order.back();
        order.pop_back();
        last->inOrder = false;
        putOut(last);
    }
}

void SoakPager::forget(SoakTrace* trace)
{
    if (trace->inOrder)
        order.erase(trace->place);
    else if (!trace->resident)
        takeIn(trace);
    trace->inOrder = false;
}

void SoakPager::takeIn(SoakTrace* trace)
{
    trace->resident = true;
    --records[trace->recordSize].now;
    --outside;
}

void SoakPager::putOut(SoakTrace* trace)
{
    trace->resident = false;
    trace->recordSize = trace->real->getTraceMemorySize();
    Records& ofSize = records[trace->recordSize];
    ++outside;
    if (++ofSize.now <= ofSize.most)
        return;
    ofSize.most = ofSize.now;
    file += trace->recordSize;
}
