// The desktop's results model under a large library: a million synthetic
// problems over 200,000 files are fed in batches as the scan would feed them,
// then the filter is changed as a user would change it. Prints the model's
// own bytes, the process's resident memory and each filter's latency.
//   bench_results_model [files] [problems-per-file]
#include <QApplication>
#include <QElapsedTimer>

#include <unistd.h>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <string>

#include "app/ResultsModel.h"

namespace {

double residentMiB() {
    std::ifstream statm("/proc/self/statm");
    long pages = 0, resident = 0;
    statm >> pages >> resident;
    return double(resident) * double(sysconf(_SC_PAGESIZE)) / (1024.0 * 1024.0);
}

// The thread's own processor time: on a machine shared with other work the
// wall clock also counts the time others had the processor.
double cpuMs() {
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) * 1e3 + double(ts.tv_nsec) / 1e6;
}

}  // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const long files = argc > 1 ? std::atol(argv[1]) : 200000;
    const long perFile = argc > 2 ? std::atol(argv[2]) : 5;
    const auto table = sondrel::codes::problemCodes();
    const char* formats[] = {"mp3", "flac", "m4a", "ogg", "wav", "aiff", "dsf", "ape"};

    sondrel::app::ResultsModel model;
    sondrel::app::ResultsFilter filter(model);
    const double before = residentMiB();
    QElapsedTimer t;
    t.start();
    uint64_t n = 0;
    auto makeFile = [&](long f) {
        sondrel::app::PostedFile file;
        file.path = "/music/Artist " + std::to_string(f / 200) + "/Album " + std::to_string(f / 12) + "/" +
                    std::to_string(f % 12 + 1) + " Track title number " + std::to_string(f) + "." +
                    formats[f % 8];
        for (long k = 0; k < perFile; ++k, ++n)
            file.problems.push_back({uint64_t(k * 417 + 10), uint16_t(n * 7 % table.size()),
                                     "The frame at this offset has a size of " + std::to_string(n % 9973) +
                                         " bytes that runs past the end of the tag"});
        return file;
    };
    for (long f = 0; f < files; ++f) {
        model.post(makeFile(f));
        if (f % 2000 == 1999) QCoreApplication::processEvents();  // the GUI thread takes each batch
    }
    model.flush();
    std::printf("fed %llu problems in %ld files: %.0f ms\n", (unsigned long long)model.summary().problems,
                files, double(t.elapsed()));
    std::printf("model holds %.1f MiB; resident grew %.1f MiB (%.1f MiB in all)\n",
                double(model.bytesHeld()) / (1024.0 * 1024.0), residentMiB() - before, residentMiB());

    auto timed = [&](const char* what, auto change) {
        t.restart();
        const double cpu = cpuMs();
        change();
        std::printf("%-34s %6.0f ms (%4.0f ms processor), %d files shown\n", what, double(t.elapsed()),
                    cpuMs() - cpu, filter.rowCount());
    };
    timed("filter: damage and graver", [&] { filter.setMinSeverity(3); });
    timed("filter: every severity", [&] { filter.setMinSeverity(0); });
    timed("filter: one code", [&] { filter.setCode(5); });
    timed("filter: any code", [&] { filter.setCode(-1); });
    timed("filter: format FLAC", [&] { filter.setFormat(1); });
    timed("filter: any format", [&] { filter.setFormat(-1); });
    timed("search: \"track title number 1999\"", [&] { filter.setText("track title number 1999"); });
    timed("search: \"9971 bytes\"", [&] { filter.setText("9971 bytes"); });
    timed("search cleared", [&] { filter.setText(""); });
    timed("sort by problem count",
          [&] { filter.sort(sondrel::app::ResultsModel::kCount, Qt::DescendingOrder); });
    // The first sort by name is the one a user waits for: no key is made
    // here, they were all made as the files came in.
    timed("first sort by file name",
          [&] { filter.sort(sondrel::app::ResultsModel::kName, Qt::AscendingOrder); });
    timed("sort by folder", [&] { filter.sort(sondrel::app::ResultsModel::kFolder, Qt::AscendingOrder); });
    timed("sort by file name again",
          [&] { filter.sort(sondrel::app::ResultsModel::kName, Qt::AscendingOrder); });
    // Files arriving while sorted by name are placed among the sorted rows:
    // single files as a slow scan hands them over, and a batch of 200.
    timed("sorted, 1 file arrives", [&] {
        model.post(makeFile(files));
        model.flush();
    });
    timed("sorted, 20 files arrive", [&] {
        for (long f = 1; f <= 20; ++f) model.post(makeFile(files + f));
        model.flush();
    });
    timed("sorted, 200 files arrive", [&] {
        for (long f = 21; f <= 220; ++f) model.post(makeFile(files + f));
        model.flush();
    });
    // The same with the rows sorted, as after a click on a heading.
    timed("sorted, filter: damage and graver", [&] { filter.setMinSeverity(3); });
    timed("sorted, filter: every severity", [&] { filter.setMinSeverity(0); });
    timed("sorted, search: \"9971 bytes\"", [&] { filter.setText("9971 bytes"); });
    timed("sorted, search cleared", [&] { filter.setText(""); });
    return 0;
}
