#include "parts/Submission.h"

#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/Numbers.h"
#include "base/Text.h"
#include "parts/Status.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <optional>

namespace host {

namespace {

namespace fs = std::filesystem;

// What the systems have where nobody has changed it.
constexpr int64_t slurmLimit = 1001; // MaxArraySize
constexpr int64_t pbsLimit = 10001;  // max_array_size
constexpr int64_t sgeLimit = 75001;  // max_aj_tasks

// Exit codes of "vorn part": 75 asks for another try, 1 and 2 are the same in all parts. What has
// ended otherwise, by a signal or for want of memory, keeps no other part from being run.
constexpr const char* runParts = R"(    code=0
    "$vorn" part "$plan" "$part" || code=$?
    case $code in
    0) ;;
    75) again="$again $part" ;;
    1 | 2) exit $code ;;
    *) worst=$code ;;
    esac
)";

// A requeued task may come to another node. The command ends this script before the sleep does.
constexpr const char* slurmTask = R"(again=
worst=0
for part in $parts; do
    if [ "${{SLURM_RESTART_COUNT:-0}}" -gt 0 ] && [ -e "$plan/part-$part.json" ]; then
        continue # done before this task was requeued
    fi
{}done
[ $worst -eq 0 ] || exit $worst
[ -n "$again" ] || exit 0
if [ "${{SLURM_RESTART_COUNT:-0}}" -lt 3 ]; then
    scontrol requeue "${{SLURM_ARRAY_JOB_ID}}_$SLURM_ARRAY_TASK_ID" && sleep 60
fi
exit 75
)";

constexpr const char* taskInPlace = R"(tries=0
worst=0
while [ -n "$parts" ]; do
    again=
    for part in $parts; do
{}    done
    parts=$again
    [ -n "$parts" ] || break
    tries=$((tries + 1))
    [ $tries -le 3 ] || exit 75
    sleep 60
done
exit $worst
)";

constexpr const char* share = R"(task={}
tasks={}
missing='{}'
count={}
first=$(((task - 1) * count / tasks + 1))
last=$((task * count / tasks))
parts=$(for range in $missing; do seq "${{range%-*}}" "${{range#*-}}"; done | sed -n "$first,${{last}}p")
)";

void refuseControlCharacters(const std::string& text, const std::string& what)
{
    const bool bad = std::any_of(text.begin(), text.end(), [](char c) {
        return static_cast<unsigned char>(c) < ' ' || c == '\x7f';
    });
    if (bad)
        throw CommandError(what + " is " + quote(text) +
                           "; control characters cannot stand in a script");
}

std::string replaced(std::string text, char what, const std::string& by)
{
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size()))
        text.replace(at, 1, by);
    return text;
}

// Blanks before each line.
std::string indented(const std::string& text)
{
    std::string result;
    for (const std::string& line : splitLines(text))
        result += "    " + line + "\n";
    return result;
}

// The call of the batch system without the script for its standard input.
class Calls
{
public:
    explicit Calls(const Submission& made) : submission(made) {}

    // `numbers` of the tasks, as "1-8"; `name` of the log, in which `place` is the task's number.
    std::string ofParts(const std::string& numbers, int64_t tasks) const
    {
        switch (submission.engine) {
        case Engine::slurm:
            return "sbatch --parsable --job-name=vorn-parts --array=" + numbers +
                   " --requeue --open-mode=append --output=" + log("task-", "%a", ".log") +
                   options();
        case Engine::pbs:
            // Arrays have at least two tasks there.
            if (tasks == 1)
                return "qsub -V -N vorn-part -j oe -o " + log("task-1.log") + options();
            return "qsub -V -N vorn-parts -J " + numbers + " -j oe -o " +
                   log("task-", "^array_index^", ".log") + options();
        case Engine::sge:
            break;
        }
        return "qsub -terse -V -S /bin/sh -N vorn-parts -t " + numbers + " -j y -o " +
               log("task-", "$TASK_ID", ".log") + options();
    }

    // `after`: an expression for the number of the job of the parts, or nothing.
    std::string ofMerge(bool isAfterParts) const
    {
        switch (submission.engine) {
        case Engine::slurm:
            return "sbatch --parsable --job-name=vorn-merge --output=" + log("merge.log") +
                   (isAfterParts ? " --dependency=afterok:\"$parts\" --kill-on-invalid-dep=yes"
                                 : "") +
                   options();
        case Engine::pbs:
            return "qsub -V -N vorn-merge -j oe -o " + log("merge.log") +
                   (isAfterParts ? " -W depend=afterok:\"$parts\"" : "") + options();
        case Engine::sge:
            break;
        }
        return "qsub -terse -V -S /bin/sh -N vorn-merge -j y -o " + log("merge.log") +
               (isAfterParts ? " -hold_jid \"$parts\"" : "") + options();
    }

private:
    // In the directory of the plan; `number` is what the system replaces by that of the task.
    std::string log(const std::string& name, const std::string& number = "",
                    const std::string& ending = "") const
    {
        std::string directory = submission.directory;
        if (submission.engine == Engine::slurm)
            directory = replaced(directory, '%', "%%");
        return shellWord((fs::path(directory) / (name + number + ending)).string());
    }

    std::string options() const
    {
        return submission.options.empty() ? "" : " " + joined(submission.options, " ");
    }

    const Submission& submission;
};

// Of a task: what runs its parts.
std::string taskScript(const Submission& submission, const std::string& parts)
{
    const bool isSlurm = submission.engine == Engine::slurm;
    const std::string head =
        fmt::format("#!/bin/sh\nvorn={}\nplan={}\n", shellWord(submission.program),
                    shellWord(submission.directory));
    const std::string loop = isSlurm ? fmt::format(fmt::runtime(slurmTask), runParts)
                                     : fmt::format(fmt::runtime(taskInPlace), indented(runParts));
    return head + parts + loop;
}

std::string numberOfTask(Engine engine)
{
    switch (engine) {
    case Engine::slurm:
        return "$SLURM_ARRAY_TASK_ID";
    case Engine::pbs:
        return "${PBS_ARRAY_INDEX:-1}"; // without an array where there is one task
    case Engine::sge:
        break;
    }
    return "$SGE_TASK_ID";
}

// "3 17-19"
std::string shellList(const std::vector<int>& parts)
{
    return replaced(partList(parts), ',', " ");
}

std::string partsSubmission(const Submission& submission)
{
    const auto count = static_cast<int64_t>(submission.parts.size());
    const int64_t asked = submission.tasks > 0 ? submission.tasks : count;
    const int64_t tasks = std::min({count, asked, submission.arrayLimit - 1});
    // With Slurm, tasks have the numbers of their parts wherever they can.
    const bool isDirect = submission.engine == Engine::slurm && tasks == count &&
                          submission.parts.back() < submission.arrayLimit;
    const std::string numbers = isDirect ? partList(submission.parts) : fmt::format("1-{}", tasks);
    const std::string number = numberOfTask(submission.engine);
    const std::string parts = isDirect ? "parts=" + number + "\n"
                                       : fmt::format(fmt::runtime(share), number, tasks,
                                                     shellList(submission.parts), count);
    std::string text =
        fmt::format("parts=$({} <<'END_OF_TASK'\n{}END_OF_TASK\n)\n",
                    Calls(submission).ofParts(numbers, tasks), taskScript(submission, parts));
    if (submission.engine == Engine::slurm)
        text += "parts=${parts%%;*}\n"; // the name of a cluster may follow
    else if (submission.engine == Engine::sge)
        text += "parts=${parts%%.*}\n"; // the range of the array follows
    return text + "echo \"parts: job $parts\"\n";
}

} // namespace

int64_t arrayLimit(Engine engine, const std::string& configuration)
{
    if (engine == Engine::pbs)
        return pbsLimit;
    if (engine == Engine::sge)
        return sgeLimit;
    for (const std::string& line : splitLines(configuration)) {
        const auto sign = line.find('=');
        if (sign == std::string::npos || trimmed(line.substr(0, sign)) != "MaxArraySize")
            continue;
        const std::optional<long long> size = parseInteger(trimmed(line.substr(sign + 1)));
        if (size && *size > 1)
            return *size;
    }
    return slurmLimit;
}

std::string submitProgram(Engine engine)
{
    return engine == Engine::slurm ? "sbatch" : "qsub";
}

std::string submissionScript(const Submission& submission)
{
    refuseControlCharacters(submission.directory, "the directory of the plan");
    refuseControlCharacters(submission.program, "the path of vorn");
    for (const std::string& option : submission.options)
        refuseControlCharacters(option, "--option");
    for (const std::string& option : submission.mergeOptions)
        refuseControlCharacters(option, "--merge-option");

    std::string text = "#!/bin/sh\nset -eu\n";
    const bool hasParts = !submission.parts.empty();
    if (hasParts)
        text += partsSubmission(submission);
    std::string merge = fmt::format("exec {} merge {}", shellWord(submission.program),
                                    shellWord(submission.directory));
    for (const std::string& option : submission.mergeOptions)
        merge += " " + option;
    text += fmt::format("merge=$({} <<'END_OF_TASK'\n#!/bin/sh\n{}\nEND_OF_TASK\n)\n",
                        Calls(submission).ofMerge(hasParts), merge);
    if (submission.engine == Engine::slurm)
        text += "merge=${merge%%;*}\n";
    return text + "echo \"merge: job $merge\"\n";
}

} // namespace host
