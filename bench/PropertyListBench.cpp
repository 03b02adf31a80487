// Reading 1,000 job-sized property lists: PropertyList::readDictionary against libplist
// alone (read the file, plist_from_memory, plist_free) in the same process. The ratio of
// the two is printed at the end; the goal is at most 1.3.
#include "platform/PlistDict.h"
#include "platform/PropertyList.h"

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>
#include <plist/plist.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int kJobCount = 1000;
constexpr double kGoal = 1.3;

struct JobFiles
{
    QTemporaryDir dir{QStringLiteral("/tmp/kairo-bench-XXXXXX")};
    std::vector<QString> paths;
    std::vector<std::string> nativePaths;
};

// A dictionary like one the job file writer produces for a calendar task.
PlistValue jobDictionary(int n)
{
    const QString program =
        QStringLiteral("/Applications/Client %1.app/Contents/MacOS/Client").arg(n % 7);
    PlistDict calendarA{{QStringLiteral("Minute"), PlistValue(n % 60)},
                        {QStringLiteral("Hour"), PlistValue(n % 24)}};
    PlistDict calendarB{{QStringLiteral("Minute"), PlistValue(30)},
                        {QStringLiteral("Hour"), PlistValue(15)},
                        {QStringLiteral("Weekday"), PlistValue(n % 7)}};
    PlistDict environment{
        {QStringLiteral("VTAppBundleID"),
         PlistValue(QStringLiteral("com.vantreel.Client%1").arg(n % 7))},
        {QStringLiteral("VTCommandID"), PlistValue(QStringLiteral("backup-%1").arg(n))}};
    PlistDict job{
        {QStringLiteral("Label"),
         PlistValue(QStringLiteral("com.vantreel.ScheduledTask%1").arg(n))},
        {QStringLiteral("Program"), PlistValue(program)},
        {QStringLiteral("ProgramArguments"),
         PlistValue(PlistArray{PlistValue(program), PlistValue("-backup"), PlistValue("-quiet"),
                               PlistValue(QStringLiteral("--target=/media/Backup %1").arg(n))})},
        {QStringLiteral("LowPriorityIO"), PlistValue(true)},
        {QStringLiteral("Nice"), PlistValue(n % 20)},
        {QStringLiteral("StartCalendarInterval"),
         PlistValue(PlistArray{PlistValue(calendarA), PlistValue(calendarB)})},
        {QStringLiteral("EnvironmentVariables"), PlistValue(environment)},
        {QStringLiteral("Disabled"), PlistValue(n % 3 == 0)},
        {QStringLiteral("RunAtLoad"), PlistValue(false)},
        {QStringLiteral("ProcessType"), PlistValue("Background")},
    };
    return PlistValue(job);
}

JobFiles &jobFiles()
{
    static JobFiles files = [] {
        JobFiles f;
        if (!f.dir.isValid()) {
            std::fprintf(stderr, "cannot create a temporary folder\n");
            std::exit(1);
        }
        for (int n = 0; n < kJobCount; ++n) {
            const QString path =
                f.dir.path() + QStringLiteral("/com.vantreel.ScheduledTask%1.plist").arg(n);
            if (!PropertyList::writeXml(jobDictionary(n), path)) {
                std::fprintf(stderr, "cannot write %s\n", qPrintable(path));
                std::exit(1);
            }
            f.paths.push_back(path);
            f.nativePaths.push_back(path.toStdString());
        }
        return f;
    }();
    return files;
}

bool readWithLibplist(const std::string &path, std::vector<char> &buffer)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    struct stat st
    {};
    ::fstat(fd, &st);
    buffer.resize(static_cast<size_t>(st.st_size));
    size_t used = 0;
    while (used < buffer.size()) {
        const ssize_t n = ::read(fd, buffer.data() + used, buffer.size() - used);
        if (n <= 0) {
            break;
        }
        used += static_cast<size_t>(n);
    }
    ::close(fd);
    plist_t root = nullptr;
    plist_from_memory(buffer.data(), static_cast<uint32_t>(used), &root);
    const bool ok = root && plist_get_node_type(root) == PLIST_DICT;
    plist_free(root);
    return ok;
}

void BM_PropertyListReadDictionary(benchmark::State &state)
{
    const JobFiles &files = jobFiles();
    for (auto _ : state) {
        for (const QString &path : files.paths) {
            auto dict = PropertyList::readDictionary(path);
            if (!dict || dict->size() != 10) {
                state.SkipWithError("a job file did not read back");
                return;
            }
            benchmark::DoNotOptimize(dict);
        }
    }
    state.SetItemsProcessed(state.iterations() * kJobCount);
}
BENCHMARK(BM_PropertyListReadDictionary)->Unit(benchmark::kMillisecond);

void BM_LibplistAlone(benchmark::State &state)
{
    const JobFiles &files = jobFiles();
    std::vector<char> buffer;
    for (auto _ : state) {
        for (const std::string &path : files.nativePaths) {
            if (!readWithLibplist(path, buffer)) {
                state.SkipWithError("libplist did not read a job file");
                return;
            }
        }
    }
    state.SetItemsProcessed(state.iterations() * kJobCount);
}
BENCHMARK(BM_LibplistAlone)->Unit(benchmark::kMillisecond);

// Reports as the console does (only the summaries when there are repetitions) and keeps,
// for each benchmark, the fastest and the median CPU time per iteration. CPU time, so that
// waiting for other work on a busy machine does not count; the fastest run is the one that
// other work disturbed least.
class RatioReporter : public benchmark::ConsoleReporter
{
public:
    std::map<std::string, double> fastest;
    std::map<std::string, double> median;

    void ReportRuns(const std::vector<Run> &runs) override
    {
        std::vector<Run> shown;
        for (const Run &run : runs) {
            if (run.error_occurred) {
                shown.push_back(run);
                continue;
            }
            const std::string name = run.run_name.function_name;
            if (run.run_type == Run::RT_Iteration) {
                const double t = run.GetAdjustedCPUTime();
                const auto it = fastest.find(name);
                fastest[name] = it == fastest.end() ? t : std::min(it->second, t);
                if (run.repetitions <= 1) {
                    median[name] = t;
                    shown.push_back(run);
                }
            } else {
                if (run.aggregate_name == "median") {
                    median[name] = run.GetAdjustedCPUTime();
                }
                shown.push_back(run);
            }
        }
        if (!shown.empty()) {
            ConsoleReporter::ReportRuns(shown);
        }
    }
};

} // namespace

int main(int argc, char **argv)
{
    // By default five repetitions of each, interleaved at random so that a busy moment of
    // the machine does not fall on one side only. Arguments given on the command line come
    // later and win.
    std::vector<char *> args{argv[0]};
    std::string repetitions = "--benchmark_repetitions=5";
    std::string interleave = "--benchmark_enable_random_interleaving=true";
    args.push_back(repetitions.data());
    args.push_back(interleave.data());
    for (int i = 1; i < argc; ++i) {
        args.push_back(argv[i]);
    }
    args.push_back(nullptr);
    argc = static_cast<int>(args.size()) - 1;
    argv = args.data();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    jobFiles(); // written before any timing starts
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    const char *ours = "BM_PropertyListReadDictionary";
    const char *theirs = "BM_LibplistAlone";
    if (!reporter.fastest.count(ours) || !reporter.fastest.count(theirs) ||
        !reporter.median.count(ours) || !reporter.median.count(theirs) ||
        reporter.fastest[theirs] <= 0 || reporter.median[theirs] <= 0) {
        std::printf("PropertyList::readDictionary / libplist alone: no result (NOT MET)\n");
        return 1;
    }
    const double ratio = reporter.fastest[ours] / reporter.fastest[theirs];
    const double medianRatio = reporter.median[ours] / reporter.median[theirs];
    std::printf("PropertyList::readDictionary / libplist alone, %d job files (CPU time): "
                "ratio %.2f of the fastest runs, %.2f of the medians (goal at most %.1f): %s\n",
                kJobCount, ratio, medianRatio, kGoal, ratio <= kGoal ? "met" : "NOT MET");
    return ratio <= kGoal ? 0 : 1;
}
