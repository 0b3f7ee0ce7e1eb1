// Measures the module through its function table beside the least that its work takes and beside
// SoftHSM2, and prints one table. docs/performance.md tells how to read it.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "bare_client.h"
#include "cache_floor.h"
#include "certificates.h"
#include "home.h"
#include "loading.h"
#include "local_signing_service/ports.h"
#include "local_signing_service/private_key.h"
#include "medians.h"
#include "memory.h"
#include "require.h"
#include "scratch_folder.h"
#include "service_process.h"
#include "soft_hsm.h"
#include "table.h"
#include "token.h"
#include "work.h"

namespace {

namespace fs = std::filesystem;
using namespace bench;

constexpr CK_SLOT_ID SLOT = 1;
constexpr CK_OBJECT_HANDLE KEY_OF_FIRST = 0x80000001;

constexpr double MOST_BYTES_OVER_FLOOR = 1.05;
constexpr long MOST_GROWTH = 512;  // KiB
// What one certificate of 10,000 may take beside one of 1,000 where the time is linear.
constexpr double MOST_OVER_LINEAR = 1.25;

// Returns whether the user's filter of benchmarks takes in `id`, which is none of the library's
// own.
bool isWanted(const std::string& id) {
  const std::string filter = benchmark::GetBenchmarkFilter();
  if (filter.empty() || filter == "all") return true;
  // As the library reads it: what begins with a hyphen leaves out.
  const bool isNegative = filter.starts_with('-');
  return std::regex_search(id, std::regex(filter.substr(isNegative ? 1 : 0))) != isNegative;
}

Verdict verdict(bool isMet) { return isMet ? Verdict::MET : Verdict::MISSED; }

Line sizeLine() {
  const auto module = static_cast<double>(fs::file_size(STRIPPED_MODULE));
  const auto floor = static_cast<double>(fs::file_size(STRIPPED_FLOOR));
  return {.work = "size: stripped library",
          .module = decimals(module / 1024, 0) + " KiB",
          .floor = decimals(floor / 1024, 0) + " KiB",
          .ratio = decimals(module / floor, 2),
          .goal = "<= " + decimals(MOST_BYTES_OVER_FLOOR, 2),
          .verdict = verdict(module <= MOST_BYTES_OVER_FLOOR * floor)};
}

std::vector<Line> memoryLines(Token& module) {
  const MemoryGrowth growth = measureMemory(module, KEY_OF_FIRST);
  return {{.work = "memory: growth in a long life",
           .module = std::to_string(growth.kibibytes) + " KiB",
           .goal = "< " + std::to_string(MOST_GROWTH) + " KiB",
           .verdict = verdict(growth.kibibytes < MOST_GROWTH)},
          {.work = "memory: descriptors after and before it",
           .module = std::to_string(growth.descriptorsAfter),
           .floor = std::to_string(growth.descriptorsBefore),
           .goal = "the same",
           .verdict = verdict(growth.descriptorsAfter == growth.descriptorsBefore)}};
}

// Returns the line `text`, which compares what one certificate takes in the listing of many,
// `large`, and in that of a tenth, `small`; nothing when they have not run.
std::optional<Line> linearityLine(const std::string& text, const Work& large, const Work& small,
                                  const Medians& medians) {
  const auto share = [&](const Work& work) {
    return medians.of(work.id + "/module").value_or(0) / static_cast<double>(work.home->count());
  };
  const double ofLarge = share(large);
  const double ofSmall = share(small);
  if (ofLarge == 0 || ofSmall == 0) return std::nullopt;
  const double ratio = ofLarge / ofSmall;
  return Line{
      .work = text,
      .module = duration(ofLarge),
      .floor = duration(ofSmall),
      .ratio = decimals(ratio, 2),
      .goal = "<= " + decimals(MOST_OVER_LINEAR, 2),
      .verdict = medians.areReliable() ? verdict(ratio <= MOST_OVER_LINEAR) : Verdict::NOT_JUDGED};
}

// Returns the authorities that the local module trusts, in the order in which it loads them.
std::vector<std::string> trustAnchors(const fs::path& pki) {
  std::vector<fs::path> files(fs::directory_iterator(pki / "deployment/trust-anchors"), {});
  std::sort(files.begin(), files.end());
  std::vector<std::string> texts;
  std::transform(files.begin(), files.end(), std::back_inserter(texts), localservice::readFile);
  return texts;
}

// Returns a copy in `folder` of the library `file`. What loading a file takes depends on how it
// lies in the system's cache, and that on how it was written: copies lie there alike.
std::string copyOf(const fs::path& file, const fs::path& folder) {
  fs::path copy = folder / file.filename();
  fs::copy_file(file, copy);
  return copy;
}

// The library that follows the standard, with a session: a copy of its own for one home, since it
// keeps what it has parsed.
class Standard {
 public:
  Standard(const ScratchFolder& scratch, const Home& home)
      : folder_(scratch.path()),
        library_((home.enter(), copyOf(STANDARD_MODULE, folder_.path()).c_str())),
        token_(Token::open(library_, SLOT)) {}

  Token* operator->() { return &token_; }

 private:
  ScratchFolder folder_;
  TokenLibrary library_;
  Token token_;
};

// Measures and prints everything. Returns whether a goal was missed that is not known to be.
bool run() {
  const fs::path pki = LOCAL_PKI;
  const ScratchFolder scratch(fs::temp_directory_path());
  const std::vector<std::string> certificates = makeCertificates(pki, 1'000);
  const Home few(scratch.path(), certificates, 10);
  const Home hundred(scratch.path(), certificates, 100);
  const Home thousand(scratch.path(), certificates, 1'000);
  const Home tenThousand(scratch.path(), certificates, 10'000);

  few.enter();
  const TokenLibrary library(LOCAL_MODULE);
  Token module = Token::open(library, SLOT);
  const BareClient client(trustAnchors(pki), recordSignature(pki, module, KEY_OF_FIRST));
  const ServiceProcess service(pki);
  const std::string port = std::to_string(localservice::PRODUCTION_PORT);

  // First, before anything else fills the memory of this process.
  std::vector<Line> others = {sizeLine()};
  if (isWanted("memory")) {
    const std::vector<Line> memory = memoryLines(module);
    others.insert(others.end(), memory.begin(), memory.end());
  }

  hundred.enter();
  // SoftHSM2 waits for the disk, where there is one, with each object that it stores.
  const ScratchFolder tokens(fs::exists("/dev/shm") ? "/dev/shm" : fs::temp_directory_path());
  SoftHsm softHsm(tokens.path());
  Token softHundred = softHsm.addToken(module, 100);
  thousand.enter();
  Token softThousand = softHsm.addToken(module, 1'000);
  tenThousand.enter();
  Token softTenThousand = softHsm.addToken(module, 10'000);
  thousand.enter();

  const CacheFloor floorHundred(hundred.cache());
  const CacheFloor floorThousand(thousand.cache());
  const CacheFloor floorTenThousand(tenThousand.cache());
  const ScratchFolder libraries(fs::path(STRIPPED_MODULE).parent_path());
  const std::string moduleCopy = copyOf(STRIPPED_MODULE, libraries.path());
  const std::string emptyLibraryCopy = copyOf(STRIPPED_EMPTY_LIBRARY, libraries.path());
  CertificateAttributes attributes;
  module.read(500, attributes);
  const std::string subject = attributes.value(CKA_SUBJECT);
  const std::string value = attributes.value(CKA_VALUE);
  require(softThousand.findCertificate(CKA_SUBJECT, subject) == 1, "SoftHSM2 lacks a certificate");
  const CK_OBJECT_HANDLE softObject = softThousand.found(0);

  Standard standardHundred(scratch, hundred);
  Standard standardThousand(scratch, thousand);
  Standard standardTenThousand(scratch, tenThousand);

  const auto expect = [](std::size_t found, std::size_t expected) {
    require(found == expected, "a search has not found what is there");
  };
  // SoftHSM2 holds the certificates alone, the module shows a key beside each.
  const Work works[] = {
      {"list/100",
       "list 100 certificates",
       &hundred,
       {.mostOverFloor = 1.15, .leastAhead = 30},
       [&] { expect(module.list(), 200); },
       [&] { expect(floorHundred.list(), 100); },
       [&] { expect(softHundred.list(), 100); }},
      {"list/1000",
       "list 1,000 certificates",
       &thousand,
       {.mostOverFloor = 1.15, .leastAhead = 30},
       [&] { expect(module.list(), 2'000); },
       [&] { expect(floorThousand.list(), 1'000); },
       [&] { expect(softThousand.list(), 1'000); }},
      {"list/10000",
       "list 10,000 certificates",
       &tenThousand,
       {.mostOverFloor = 1.15, .leastAhead = 30},
       [&] { expect(module.list(), 20'000); },
       [&] { expect(floorTenThousand.list(), 10'000); },
       [&] { expect(softTenThousand.list(), 10'000); }},
      {"subject",
       "search by subject over 1,000",
       &thousand,
       {.mostOverFloor = 1.10, .leastAhead = 1, .isMissKnown = true},
       [&] { expect(module.findCertificate(CKA_SUBJECT, subject), 1); },
       [&] { expect(floorThousand.countSubject(subject), 1); },
       [&] { expect(softThousand.findCertificate(CKA_SUBJECT, subject), 1); }},
      {"value",
       "search by value over 1,000",
       &thousand,
       {.mostOverFloor = 1.15},
       [&] { expect(module.findCertificate(CKA_VALUE, value), 1); },
       [&] { expect(floorThousand.countValue(value), 1); }},
      {"attributes",
       "eight attributes of one certificate",
       &thousand,
       {.mostOverFloor = 1.15, .leastAhead = 1, .isMissKnown = true},
       [&] { module.read(500, attributes); },
       [&] { floorThousand.read(500, attributes.withRoom(), CertificateAttributes::COUNT); },
       [&] { softThousand.read(softObject, attributes); }},
      {"sign",
       "signature accepted at the first query",
       &thousand,
       {.mostOverFloor = 1.10},
       [&] { module.sign(KEY_OF_FIRST); },
       [&] { client.exchange(port.c_str()); },
       nullptr,
       true},
      {"load",
       "load, initialise, finalise, unload",
       &thousand,
       {.mostOverFloor = 1.30},
       [&] { loadModule(moduleCopy.c_str()); },
       [&] { loadEmptyLibrary(emptyLibraryCopy.c_str()); }},
      {.id = "standard/list/100",
       .text = "standard: list 100 certificates",
       .home = &hundred,
       .goals = {.leastAhead = 1},
       .module = [&] { expect(standardHundred->list(), 300); },
       .softHsmId = "list/100"},
      {.id = "standard/list/1000",
       .text = "standard: list 1,000 certificates",
       .home = &thousand,
       .goals = {.leastAhead = 1},
       .module = [&] { expect(standardThousand->list(), 3'000); },
       .softHsmId = "list/1000"},
      {.id = "standard/list/10000",
       .text = "standard: list 10,000 certificates",
       .home = &tenThousand,
       .goals = {.leastAhead = 1},
       .module = [&] { expect(standardTenThousand->list(), 30'000); },
       .softHsmId = "list/10000"},
      {.id = "standard/subject",
       .text = "standard: search by subject over 1,000",
       .home = &thousand,
       .goals = {.leastAhead = 1},
       .module = [&] { expect(standardThousand->findCertificate(CKA_SUBJECT, subject), 1); },
       .softHsmId = "subject"},
      {.id = "standard/attributes",
       .text = "standard: eight attributes of one certificate",
       .home = &thousand,
       .goals = {.leastAhead = 1},
       .module = [&] { standardThousand->read(500, attributes); },
       .softHsmId = "attributes"},
  };
  Medians medians;
  std::vector<Line> lines;
  const auto add = [&](const std::optional<Line>& line) {
    if (line) lines.push_back(*line);
  };
  const auto measure = [&](const auto& group) {
    for (const Work& work : group) registerBenchmarks(work);
    benchmark::RunSpecifiedBenchmarks(&medians);
    benchmark::ClearRegisteredBenchmarks();
    for (const Work& work : group) add(judge(work, medians));
  };
  measure(works);
  add(linearityLine("list: each of 10,000 beside each of 1,000", works[2], works[1], medians));
  // Apart: what these leave in memory makes all else take up to three times as long.
  if (isWanted("standard/list/100000") || isWanted("standard/subject/100000")) {
    const Home home(scratch.path(), certificates, 100'000);
    Standard standard(scratch, home);
    const Work large[] = {
        {.id = "standard/list/100000",
         .text = "standard: list 100,000 certificates",
         .home = &home,
         .goals = {},
         .module = [&] { expect(standard->list(), 300'000); }},
        {.id = "standard/subject/100000",
         .text = "standard: search by subject over 100,000",
         .home = &home,
         .goals = {},
         .module = [&] { expect(standard->findCertificate(CKA_SUBJECT, subject), 100); }}};
    measure(large);
    add(linearityLine("standard: each of 100,000 beside each of 10,000", large[0], works[10],
                      medians));
  }
  lines.insert(lines.end(), others.begin(), others.end());
  printTable(std::cout, lines);
  return std::any_of(lines.begin(), lines.end(),
                     [](const Line& line) { return line.verdict == Verdict::MISSED; });
}

// Google Benchmark's options, those of the user last: they prevail. Many short repetitions in
// random order, so that a machine that is slow for a while is slow for both sides of each
// comparison.
std::vector<std::string> options(int argc, char** argv) {
  std::vector<std::string> all = {argv[0], "--benchmark_repetitions=101",
                                  "--benchmark_enable_random_interleaving=true",
                                  "--benchmark_min_time=" MIN_TIME};
  all.insert(all.end(), argv + 1, argv + argc);
  return all;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> texts = options(argc, argv);
  std::vector<char*> pointers(texts.size());
  std::transform(texts.begin(), texts.end(), pointers.begin(),
                 [](std::string& text) { return text.data(); });
  int count = static_cast<int>(pointers.size());
  benchmark::Initialize(&count, pointers.data());
  if (benchmark::ReportUnrecognizedArguments(count, pointers.data())) return 2;
  try {
    return run() ? 1 : 0;
  } catch (const std::exception& failure) {
    std::cerr << "benchmark-module: " << failure.what() << '\n';
    return 2;
  }
}
