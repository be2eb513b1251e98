#include "traces/OrderRequest.h"

#include "MOXKernel.h"

#include <sstream>

namespace traces {

namespace {

constexpr int jobScope = 0;

std::string ofTheJob(const std::string& key)
{
    return getMetaDataValue(jobScope, key).getStrValue();
}

} // namespace

// Three lines: the module that sorts, the keys, the file.
std::optional<OrderRequest> orderRequest()
{
    const std::string text = ofTheJob(std::string("vorn.order.") + getModuleName());
    if (text.empty())
        return std::nullopt;
    std::istringstream lines(text);
    OrderRequest request;
    std::getline(lines, request.sorter);
    std::getline(lines, request.keysText);
    std::getline(lines, request.file);
    std::istringstream keys(request.keysText);
    for (std::string key; std::getline(keys, key, ',');) {
        const bool descending = key.starts_with('-');
        request.keys.push_back({descending ? key.substr(1) : key, descending});
    }
    return request;
}

void acceptOrder(const OrderRequest& request)
{
    setMetaDataValue(jobScope, "vorn.ordered." + request.sorter, request.keysText);
}

std::string acceptedOrder()
{
    return ofTheJob(std::string("vorn.ordered.") + getModuleName());
}

} // namespace traces
