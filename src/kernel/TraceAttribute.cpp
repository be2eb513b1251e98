#include "TraceAttribute.h"

#include "JobManager.h"
#include "private/wrapping.h"

#include <algorithm>

traceAttIdent::traceAttIdent() : type(undefinedAttType), offset(0), dim(0), size(0) {}

traceAttIdent::traceAttIdent(const std::string& name, int& nextOffset)
    : type(int32AttType), offset(nextOffset), dim(-1), size(4)
{
    const JobManager* job = JobManager::getInstance();
    dim = job->getTraceAttributeDimension(name);

    const auto number = [this](traceAttVarType scalar, traceAttVarType array, int width) {
        type = dim <= 1 ? scalar : array;
        dim = std::max(dim, 1);
        size = wrapping::product(dim, width);
    };
    const auto text = [this](int width) {
        type = strAttType;
        size = width;
    };
    switch (job->getTraceAttributeType(name)) {
    case 1:
        text(1); // deliberate: one character is written, whatever the dimension reserves
        break;
    case 2:
        number(int32AttType, int32ArrayAttType, 4);
        break;
    case 3:
        number(int64AttType, int64ArrayAttType, 8);
        break;
    case 4:
        number(float32AttType, float32ArrayAttType, 4);
        break;
    case 5:
        number(float64AttType, float64ArrayAttType, 8);
        break;
    case 9:
        text(32);
        break;
    case 10:
        text(64);
        break;
    default:
        break;
    }
    // Absurd dimensions wrap; the trace's own checks keep such attributes out of its blocks.
    nextOffset = wrapping::sum(nextOffset, wrapping::product(std::max(1, dim), size));
}
