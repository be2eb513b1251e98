/// @file MergeRun.h
///
/// The end of a job in parts: what the modules of the parts have gathered becomes one result.
#ifndef MERGERUN_H
#define MERGERUN_H

#include "parts/Plan.h"
#include "parts/Receipt.h"
#include "parts/SecondStage.h"
#include "run/RunExtension.h"

#include <optional>
#include <string>
#include <vector>

namespace host {

/// What the merge does besides running the job: all modules prepare as ever; then the messages of
/// the parts are repeated, the modules of the first stage merge what they have saved, those of the
/// second process what is in the spools; and all end as ever, so that end messages, pictures and
/// metadata come once.
class MergeRun : public RunExtension
{
public:
    /// `receipts` are those of all parts in order; or, where a part has failed, of all up to that
    /// one: then its messages are repeated, and nothing is merged.
    MergeRun(const Plan& plan, const std::string& directory, std::vector<Receipt> receipts);

    /// What the parts have told, in their order.
    const std::vector<Receipt>& parts() const { return receipts; }
    /// Whether they were ranges of sorted traces.
    bool isSorted() const { return plan.order.has_value(); }

    void prepared(const RunView& view) override;
    void processing(const RunView& view) override;
    void processed(const RunView& view, bool good) override;
    void ended(RunResult& result) override;

private:
    void repeatMessages(const RunView& view) const;
    void mergeStates(const RunView& view) const;
    void addTo(RunModule& row, std::size_t place) const;
    void addTo(SourceData& source) const;

    const Plan& plan;
    std::string directory;
    std::vector<Receipt> receipts;
    std::vector<std::string> attributes; ///< of the job's schema, in its order
    std::optional<SecondStage> stage;
};

} // namespace host

#endif
