/// @file OrderRequest.h
///
/// How a reader and a module that sorts agree that the reader gives its traces in order: reading
/// them so is much cheaper than holding all of them. The host asks a reader for it by an entry of
/// the job's metadata, where nobody can see the difference; the reader tells the module that sorts
/// by another one. All functions need a running module.
#ifndef ORDERREQUEST_H
#define ORDERREQUEST_H

#include <optional>
#include <string>
#include <vector>

namespace traces {

/// A header word to sort by.
struct OrderKey
{
    std::string word;
    bool descending = false;
};

/// What the host asks of the running module.
struct OrderRequest
{
    std::string sorter;         ///< the module that sorts, by its name in the job
    std::string keysText;       ///< as in "cdp,-offset"
    std::vector<OrderKey> keys; ///< the same, one by one
    /// Where the order is kept: it is made there unless it exists, and `part` then names places in
    /// it. Empty: nowhere.
    std::string file;
};

/// The request to the running module; nothing without one.
std::optional<OrderRequest> orderRequest();
/// Tells the module that sorts that its input comes in order.
void acceptOrder(const OrderRequest& request);
/// What has been told to the running module: keys as in "cdp,-offset"; "" without that.
std::string acceptedOrder();

} // namespace traces

#endif
