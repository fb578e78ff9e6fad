// The public interface beside SQLite storing the same records as JSON, with the same durability, in one run:
// ratios are what counts.
//
// Data: the package index of this system. Rival: table doc(id INTEGER PRIMARY KEY, unid BLOB UNIQUE, json
// TEXT) in WAL mode, texts made beforehand, so that its time is that of storing alone.
//
//   public_bench [record limit] [workloads, default "rsdc": r reads, s scan, d durable commits, c small
//   calls]
#include <brynd.h>
#include <kavrin.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "../examples/pkgdb/package_index.h"

namespace {

namespace fs = std::filesystem;

constexpr uint32_t kTransactionRecords = 10000;  // of the rival's large transactions
constexpr uint32_t kDurableRecords = 2000, kDurableTurn = 50;
constexpr uint32_t kRandomReads = 200000;

struct Package {
  std::vector<std::pair<std::string, std::string>> texts;
  double installed_size = 0;
  double size = 0;
  std::string json;
};

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}
double CpuNow(int whose = RUSAGE_SELF) {
  rusage usage{};
  getrusage(whose, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}
double last_cpu_seconds = 0;  // processor time of the work timed last
double Timed(const std::function<void()>& work) {
  const double start = Now();
  const double cpu_start = CpuNow();
  work();
  last_cpu_seconds = CpuNow() - cpu_start;
  return Now() - start;
}

void Check(uint32_t status, const char* what) {
  if (status == 0) return;
  char message[256] = "";
  KVErrorGetInfo(status, nullptr, message);
  fprintf(stderr, "%s: 0x%x %s\n", what, status, message);
  exit(1);
}

void AppendJson(std::string* json, std::string_view text) {
  *json += '"';
  for (const char c : text) {
    if (c == '"' || c == '\\') *json += '\\';
    if (c == '\n') {
      *json += "\\n";
      continue;
    }
    *json += c;
  }
  *json += '"';
}

std::vector<Package> LoadPackages(size_t limit) {
  static IndexText index = ReadSystemIndex(PKGDB_SHIPPED_INDEX);
  std::string_view text = index.text;
  std::vector<Package> packages;
  Record record;
  while (packages.size() < limit && NextRecord(&text, &record)) {
    Package package;
    package.json = "{";
    for (const Field& field : record.fields) {
      if (field.value.empty()) continue;
      std::string name(field.name);
      std::erase(name, '-');
      if (package.json.size() > 1) package.json += ',';
      AppendJson(&package.json, name);
      package.json += ':';
      const std::string value(field.value);
      if (name == "InstalledSize" || name == "Size") {
        (name == "Size" ? package.size : package.installed_size) = atof(value.c_str());
        package.json += value;
        continue;
      }
      AppendJson(&package.json, value);
      package.texts.emplace_back(name, value);
    }
    package.json += '}';
    packages.push_back(std::move(package));
  }
  return packages;
}

// ---- The rival

class Rival {
 public:
  explicit Rival(const fs::path& path, const char* synchronous) {
    sqlite3_open(path.c_str(), &db_);
    Run("PRAGMA journal_mode=WAL");
    Run((std::string("PRAGMA synchronous=") + synchronous).c_str());
    Run("CREATE TABLE IF NOT EXISTS doc(id INTEGER PRIMARY KEY, unid BLOB UNIQUE, json TEXT)");
    sqlite3_prepare_v2(db_, "INSERT INTO doc(unid, json) VALUES(?, ?)", -1, &insert_, nullptr);
    sqlite3_prepare_v2(db_,
                       "SELECT json_extract(json,'$.Package'), json_extract(json,'$.Section'), "
                       "json_extract(json,'$.InstalledSize') FROM doc WHERE id=?",
                       -1, &read_, nullptr);
  }
  ~Rival() {
    sqlite3_finalize(insert_);
    sqlite3_finalize(read_);
    sqlite3_close(db_);
  }
  void Run(const char* sql) { sqlite3_exec(db_, sql, nullptr, nullptr, nullptr); }
  void Insert(const Package& package, std::mt19937_64* random) {
    const uint64_t unid[2] = {(*random)(), (*random)()};
    sqlite3_bind_blob(insert_, 1, unid, sizeof unid, SQLITE_STATIC);
    sqlite3_bind_text(insert_, 2, package.json.data(), static_cast<int>(package.json.size()), SQLITE_STATIC);
    if (sqlite3_step(insert_) != SQLITE_DONE) fprintf(stderr, "rival: %s\n", sqlite3_errmsg(db_));
    sqlite3_reset(insert_);
  }
  size_t Read(uint32_t id) {
    sqlite3_bind_int64(read_, 1, id);
    size_t bytes = 0;
    if (sqlite3_step(read_) == SQLITE_ROW)
      for (int column = 0; column < 3; ++column)
        bytes += static_cast<size_t>(sqlite3_column_bytes(read_, column));
    sqlite3_reset(read_);
    return bytes;
  }
  int64_t Count(const char* sql) {
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(db_, sql, -1, &statement, nullptr);
    const int64_t count = sqlite3_step(statement) == SQLITE_ROW ? sqlite3_column_int64(statement, 0) : -1;
    sqlite3_finalize(statement);
    return count;
  }

 private:
  sqlite3* db_ = nullptr;
  sqlite3_stmt* insert_ = nullptr;
  sqlite3_stmt* read_ = nullptr;
};

// ---- The library

uint32_t Open(const fs::path& path) {
  uint32_t database = 0;
  Check(KVDatabaseOpen(nullptr, path.c_str(), 0, &database), "KVDatabaseOpen");
  return database;
}

uint32_t Create(const fs::path& path) {
  Check(KVDatabaseCreate(nullptr, path.c_str(), "Bench", nullptr, nullptr, nullptr, 0, KVDBCREATE_OVERWRITE),
        "KVDatabaseCreate");
  return Open(path);
}

void Store(uint32_t database, const Package& package, uint32_t docwrite_flags) {
  uint32_t document = 0;
  Check(KVDocumentCreate(database, 0, &document), "KVDocumentCreate");
  for (const auto& [name, value] : package.texts)
    Check(KVItemPut(document, name.c_str(), KVTYPE_TEXT, static_cast<uint32_t>(value.size()), KVTYPE_TEXT,
                    value.data(), 0),
          "KVItemPut");
  KVItemPut(document, "InstalledSize", KVTYPE_NUMBER, 8, KVTYPE_NUMBER, &package.installed_size, 0);
  KVItemPut(document, "Size", KVTYPE_NUMBER, 8, KVTYPE_NUMBER, &package.size, 0);
  Check(KVDocumentSave(document, docwrite_flags), "KVDocumentSave");
  Check(KVDocumentClose(document, KVDOCWRITE_DISCARD), "KVDocumentClose");
}

uint64_t ReadThree(uint32_t database, uint32_t docid) {
  uint32_t document = 0;
  Check(KVDocumentOpen(database, docid, 0, &document), "KVDocumentOpen");
  char text[256];
  uint32_t length = sizeof text - 1;
  uint64_t bytes = 0;
  KVItemFetch(document, "Package", nullptr, &length, nullptr, text);
  bytes += length;
  length = sizeof text - 1;
  KVItemFetch(document, "Section", nullptr, &length, nullptr, text);
  bytes += length;
  double number = 0;
  length = sizeof number;
  KVItemFetch(document, "InstalledSize", nullptr, &length, nullptr, &number);
  KVDocumentClose(document, KVDOCWRITE_DISCARD);
  return bytes + length;
}

EngStatus CountMatch(void* parameter, const SEARCH_MATCH* match, const ITEM_TABLE*) {
  *static_cast<uint32_t*>(parameter) += match->SERetFlags & 1;
  return 0;
}

uint32_t Scan(uint32_t database, EngMem formula) {
  EngDb engine_database = 0;
  KVDatabaseGetBryndHandle(database, KVTOBRYND_GET_HANDLE, &engine_database);
  uint32_t count = 0;
  Check(EngDbSearch(engine_database, formula, nullptr, 0, BRCLASS_DATA, nullptr, CountMatch, &count, nullptr),
        "scan");
  return count;
}

// ---- The table

void Row(const char* workload, double ours, double theirs, const char* goal) {
  printf("| %-52s | %9.3f us | %9.3f us | %6.2f | %s |\n", workload, ours * 1e6, theirs * 1e6, theirs / ours,
         goal);
  fflush(stdout);
}

void BulkLoad(const std::vector<Package>& packages, const fs::path& folder) {
  std::mt19937_64 random(1);
  double large = 0;
  double large_cpu = 0;
  {
    Rival rival(folder / "large.db", "NORMAL");
    large = Timed([&] {
      for (size_t i = 0; i < packages.size(); ++i) {
        if (i % kTransactionRecords == 0) rival.Run(i == 0 ? "BEGIN" : "COMMIT;BEGIN");
        rival.Insert(packages[i], &random);
      }
      rival.Run("COMMIT");
    });
    large_cpu = last_cpu_seconds;
  }
  double single = 0;
  {
    Rival rival(folder / "single.db", "NORMAL");
    single = Timed([&] {
      for (const Package& package : packages) rival.Insert(package, &random);
    });
  }
  const uint32_t database = Create(folder / "bench.QDB");
  const double ours = Timed([&] {
    for (const Package& package : packages) Store(database, package, KVDOCWRITE_NOCOMMIT);
  });
  const double ours_cpu = last_cpu_seconds;
  const double close = Timed([&] { KVDatabaseClose(database, 0); });
  const double count = static_cast<double>(packages.size());
  Row("bulk load, a document; rival: large transactions", ours / count, large / count, ">= 0.8");
  Row("the same, processor time alone", ours_cpu / count, large_cpu / count, "");
  Row("bulk load, a document; rival: one transaction each", ours / count, single / count, ">= 3");
  printf("| closing after the load: %.3f s | | | | |\n", close);
  const double our_bytes = static_cast<double>(fs::file_size(folder / "bench.QDB"));
  const double rival_bytes = static_cast<double>(fs::file_size(folder / "large.db"));
  printf("| file size: %.1f MB, rival %.1f MB | | | %.2f | >= 1 |\n", our_bytes / 1e6, rival_bytes / 1e6,
         rival_bytes / our_bytes);
}

void Durable(const std::vector<Package>& packages, const fs::path& folder) {
  std::mt19937_64 random(2);
  const size_t count = std::min<size_t>(kDurableRecords, packages.size());
  Rival rival(folder / "durable.db", "FULL");
  const uint32_t database = Create(folder / "durable.QDB");
  // By turns: what else the machine's disk has to do meets both alike.
  double ours = 0, theirs = 0, ours_cpu = 0, theirs_cpu = 0;
  for (size_t start = 0; start < count; start += kDurableTurn) {
    const size_t end = std::min(start + kDurableTurn, count);
    theirs += Timed([&] {
      for (size_t i = start; i < end; ++i) rival.Insert(packages[i], &random);
    });
    theirs_cpu += last_cpu_seconds;
    ours += Timed([&] {
      for (size_t i = start; i < end; ++i) Store(database, packages[i], KVDOCWRITE_COMMIT);
    });
    ours_cpu += last_cpu_seconds;
  }
  const double n = static_cast<double>(count);
  Row("durable commit of one document", ours / n, theirs / n, ">= 1");
  Row("the same, processor time alone", ours_cpu / n, theirs_cpu / n, "");
  const double four = Timed([&] {
    std::vector<std::thread> threads;
    for (size_t t = 0; t < 4; ++t)
      threads.emplace_back([&, t] {
        Check(KVInitThread(0), "KVInitThread");
        const int32_t off = 0;
        KVSetProperty(KVPROP_SESS_STRICT_BIND, &off);
        const uint32_t own = Open(folder / "durable.QDB");
        for (size_t i = t; i < count; i += 4) Store(own, packages[i], KVDOCWRITE_COMMIT);
        KVTerm(KVTERM_THREAD);
      });
    for (std::thread& thread : threads) thread.join();
  });
  Row("durable commit, four threads together; rival: ours alone", four / n, ours / n, "> 1");
  KVDatabaseClose(database, 0);
}

void RandomReads(size_t document_count, const fs::path& folder, const std::vector<uint32_t>& docids) {
  std::vector<uint32_t> order(kRandomReads);
  std::mt19937 random(3);
  for (uint32_t& entry : order) entry = static_cast<uint32_t>(random() % document_count);
  uint64_t sum = 0;
  Rival rival(folder / "large.db", "NORMAL");
  const auto rival_reads = [&] {
    for (const uint32_t entry : order) sum += rival.Read(entry + 1);
  };
  rival_reads();
  const double theirs = Timed(rival_reads);
  const uint32_t database = Open(folder / "bench.QDB");
  const auto our_reads = [&](uint32_t handle) {
    uint64_t own = 0;
    for (const uint32_t entry : order) own += ReadThree(handle, docids[entry]);
    return own;
  };
  sum += our_reads(database);
  const double ours = Timed([&] { sum += our_reads(database); });
  const double ours_cpu = last_cpu_seconds;
  const double n = kRandomReads;
  Row("random open + three fetches + close", ours / n, theirs / n, ">= 1.5");
  std::vector<std::thread> threads;
  std::vector<double> seconds(2), cpu_seconds(2);
  for (size_t t = 0; t < 2; ++t)
    threads.emplace_back([&, t] {
      Check(KVInitThread(0), "KVInitThread");
      const int32_t off = 0;
      KVSetProperty(KVPROP_SESS_STRICT_BIND, &off);
      const uint32_t own = Open(folder / "bench.QDB");
      our_reads(own);
      const double start = Now(), cpu_start = CpuNow(RUSAGE_THREAD);
      our_reads(own);
      seconds[t] = Now() - start;
      cpu_seconds[t] = CpuNow(RUSAGE_THREAD) - cpu_start;
      KVTerm(KVTERM_THREAD);
    });
  for (std::thread& thread : threads) thread.join();
  Row("the same, two threads together; rival: ours alone", std::max(seconds[0], seconds[1]) / (2 * n),
      ours / n, ">= 1.8");
  Row("the same, processor time alone", std::max(cpu_seconds[0], cpu_seconds[1]) / (2 * n), ours_cpu / n, "");
  KVDatabaseClose(database, 0);
  if (sum == 0) printf("no data read\n");
}

void FullScan(size_t document_count, const fs::path& folder) {
  Rival rival(folder / "large.db", "NORMAL");
  const char* sql =
      "SELECT count(*) FROM doc WHERE json_extract(json,'$.Section')='games' AND "
      "json_extract(json,'$.InstalledSize')>1000";
  int64_t their_count = rival.Count(sql);
  const double theirs = Timed([&] { their_count = rival.Count(sql); });
  const uint32_t database = Open(folder / "bench.QDB");
  const char* text = "Section = \"games\" & InstalledSize > 1000";
  EngMem formula = 0;
  uint16_t bytes = 0, line = 0, column = 0, offset = 0, length = 0;
  EngStatus fault = 0;
  Check(EngFormulaCompile(nullptr, 0, text, static_cast<uint16_t>(strlen(text)), &formula, &bytes, &fault,
                          &line, &column, &offset, &length),
        "EngFormulaCompile");
  uint32_t our_count = Scan(database, formula);
  const double ours = Timed([&] { our_count = Scan(database, formula); });
  EngMemFree(formula);
  KVDatabaseClose(database, 0);
  Row("full scan with two conditions, a document", ours / static_cast<double>(document_count),
      theirs / static_cast<double>(document_count), ">= 3");
  if (our_count != their_count)
    printf("counts differ: %u and %ld\n", our_count, static_cast<long>(their_count));
}

double PerCall(uint32_t calls, const std::function<void()>& call) {
  for (uint32_t i = 0; i < calls / 10; ++i) call();
  return Timed([&] {
           for (uint32_t i = 0; i < calls; ++i) call();
         }) /
         calls;
}

void SmallCalls(const fs::path& folder, uint32_t docid) {
  const uint32_t database = Open(folder / "bench.QDB");
  uint32_t document = 0;
  Check(KVDocumentOpen(database, docid, 0, &document), "KVDocumentOpen");
  char text[256];
  uint32_t length = 0;
  const double number = 1234567.25;
  // A bad title pointer ends the call right behind its prologue and object lookup.
  const double prologue = PerCall(5000000, [&] { KVDocumentSave(document, KVDOCWRITE_DISCARD); });
  const double fetch = PerCall(5000000, [&] {
    length = sizeof text - 1;
    KVItemFetch(document, "Section", nullptr, &length, nullptr, text);
  });
  const double convert = PerCall(
      2000000, [&] { KVConvert(KVTYPE_NUMBER, 8, &number, KVTYPE_TEXT, sizeof text - 1, text, &length); });
  printf("| prologue and object, cached | %.1f ns | | | < 15 ns |\n", prologue * 1e9);
  printf("| KVItemFetch of a short text | %.1f ns | | | < 60 ns |\n", fetch * 1e9);
  printf("| KVConvert of a number to text | %.1f ns | | | < 200 ns |\n", convert * 1e9);
  KVDocumentClose(document, KVDOCWRITE_DISCARD);
  KVDatabaseClose(database, 0);
}

EngStatus CollectId(void* parameter, const SEARCH_MATCH* match, const ITEM_TABLE*) {
  if (match->SERetFlags & 1) static_cast<std::vector<uint32_t>*>(parameter)->push_back(match->ID.NoteID);
  return 0;
}

std::vector<uint32_t> AllIds(const fs::path& folder) {
  const uint32_t database = Open(folder / "bench.QDB");
  EngDb engine_database = 0;
  KVDatabaseGetBryndHandle(database, KVTOBRYND_GET_HANDLE, &engine_database);
  std::vector<uint32_t> ids;
  Check(EngDbSearch(engine_database, 0, nullptr, 0, BRCLASS_DATA, nullptr, CollectId, &ids, nullptr),
        "EngDbSearch");
  KVDatabaseClose(database, 0);
  return ids;
}

bool Has(std::string_view workloads, char one) { return workloads.find(one) != std::string_view::npos; }

}  // namespace

int main(int argc, char** argv) {
  const auto packages = LoadPackages(argc > 1 ? static_cast<size_t>(atol(argv[1])) : SIZE_MAX);
  const fs::path folder = fs::temp_directory_path() / ("kavrin-bench-" + std::to_string(getpid()));
  fs::remove_all(folder);
  fs::create_directories(folder);
  const std::string settings = (folder / "BRYND.INI").string();
  std::ofstream(settings) << "Directory=" << folder.string() << "\nUserName=CN=Bench/O=Example\n";
  Check(KVInit(KVINIT_INI_FILE, 0, const_cast<char**>(reinterpret_cast<char* const*>(settings.c_str()))),
        "KVInit");
  const int32_t off = 0;
  KVSetProperty(KVPROP_SESS_STRICT_BIND, &off);

  // The first database sets SQLite up for the process, without its counting of memory, for both sides alike.
  KVDatabaseClose(Create(folder / "first.QDB"), 0);
  printf("%zu records, SQLite %s\n\n| workload | Kavrin | SQLite | ratio | goal |\n|---|---|---|---|---|\n",
         packages.size(), sqlite3_libversion());
  BulkLoad(packages, folder);
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const std::vector<uint32_t> docids = AllIds(folder);
  const std::string_view workloads = argc > 2 ? argv[2] : "rsdc";
  if (Has(workloads, 'r')) RandomReads(docids.size(), folder, docids);
  if (Has(workloads, 's')) FullScan(docids.size(), folder);
  if (Has(workloads, 'd')) Durable(packages, folder);
  if (Has(workloads, 'c')) SmallCalls(folder, docids.front());
  printf("\nLargest memory after the load, records included: %.0f MB\n",
         static_cast<double>(usage.ru_maxrss) / 1024);
  KVTerm(0);
  fs::remove_all(folder);
  return 0;
}
