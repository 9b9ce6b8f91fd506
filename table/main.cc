// formfill-table: turns CSV, TSV or the rows of an SQLite query into a
// formfill table, or into one table per value of a column.
#include <fcntl.h>
#include <getopt.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "table/csv_source.h"
#include "table/records.h"
#include "table/sqlite_source.h"
#include "table/table_writer.h"
#include "table/temp_files.h"

namespace {

using formfill_table::CsvOptions;

constexpr int kFailure = 1;
constexpr int kUsage = 2;

const char kUsageText[] =
    "usage: formfill-table [--tsv] [--fields LIST] [--set N=VALUE]...\n"
    "                      [--split-by COLUMN] [-o OUT] [INPUT]\n"
    "       formfill-table --sqlite DATABASE --query SQL [--header-query SQL]\n"
    "                      [--set N=VALUE]... [--split-by COLUMN] [-o OUT]\n";

const char kHelpText[] =
    "Turns CSV (RFC 4180), TSV or the rows of an SQLite query into a table\n"
    "for formfill. The first CSV row names the columns; every further row is\n"
    "a record whose k-th column is the field $k.\n"
    "\n"
    "  INPUT               CSV file; standard input when '-' or absent\n"
    "  --tsv               the input is separated by tabs instead of commas\n"
    "  --fields LIST       write these columns (names or 1-based numbers,\n"
    "                      comma-separated): the i-th listed becomes $i\n"
    "  --set N=VALUE       header field N (&N;) holds VALUE; repeatable\n"
    "  --sqlite DATABASE   read the rows of --query from DATABASE (read-only)\n"
    "  --query SQL         each result row is a record, column i the field $i\n"
    "  --header-query SQL  its first row gives header fields &1, &2, ...\n"
    "  --split-by COLUMN   one table per value of COLUMN, named by -o with\n"
    "                      {} replaced; the names are printed, one a line\n"
    "  -o OUT              write to OUT instead of standard output\n"
    "  --help, --version\n"
    "\n"
    "Exit status: 0 done, 1 bad input or a failed write (no output file is\n"
    "left behind), 2 bad arguments. See formfill-table(1).\n";

struct Options {
  CsvOptions csv;
  std::map<long, std::string> header;
  std::string out;
  std::string input;
  std::string database;
  std::string query;
  std::string header_query;
  bool has_input = false;
};

int UsageError(const std::string& what) {
  fprintf(stderr, "formfill-table: %s\n%s", what.c_str(), kUsageText);
  return kUsage;
}

int Failure(const std::string& what) {
  fprintf(stderr, "formfill-table: %s\n", what.c_str());
  return kFailure;
}

// N=VALUE into fields; false when N is no field number.
bool AddSetting(const char* arg, std::map<long, std::string>* fields) {
  const char* equals = strchr(arg, '=');
  const size_t digits = strspn(arg, "0123456789");
  if (equals == nullptr || digits == 0 || digits > 9 || arg + digits != equals)
    return false;
  (*fields)[strtol(arg, nullptr, 10)] = equals + 1;
  return true;
}

// Fills *options from the command line; returns -1 to go on, else the exit
// status (after --help, --version or a usage error).
int ParseArgs(int argc, char** argv, Options* options) {
  enum { kTsv = 256, kFields, kSet, kSplitBy, kSqlite, kQuery, kHeaderQuery,
         kHelp, kVersion };
  static const option kLong[] = {
      {"tsv", no_argument, nullptr, kTsv},
      {"fields", required_argument, nullptr, kFields},
      {"set", required_argument, nullptr, kSet},
      {"split-by", required_argument, nullptr, kSplitBy},
      {"sqlite", required_argument, nullptr, kSqlite},
      {"query", required_argument, nullptr, kQuery},
      {"header-query", required_argument, nullptr, kHeaderQuery},
      {"output", required_argument, nullptr, 'o'},
      {"help", no_argument, nullptr, kHelp},
      {"version", no_argument, nullptr, kVersion},
      {nullptr, 0, nullptr, 0}};
  opterr = 0;
  for (int c; (c = getopt_long(argc, argv, ":o:", kLong, nullptr)) != -1;) {
    switch (c) {
      case kTsv: options->csv.tsv = true; break;
      case kFields: options->csv.fields = optarg; break;
      case kSplitBy: options->csv.split_by = optarg; break;
      case kSqlite: options->database = optarg; break;
      case kQuery: options->query = optarg; break;
      case kHeaderQuery: options->header_query = optarg; break;
      case 'o': options->out = optarg; break;
      case kSet:
        if (!AddSetting(optarg, &options->header))
          return UsageError(std::string("--set wants N=VALUE with N a field "
                                        "number, not '") + optarg + "'");
        break;
      case kHelp:
        printf("%s\n%s", kUsageText, kHelpText);
        return 0;
      case kVersion:
        printf("formfill-table %s\n", FORMFILL_VERSION);
        return 0;
      case ':':
        return UsageError(std::string(argv[optind - 1]) + " wants a value");
      default:
        return UsageError(std::string("unknown option ") + argv[optind - 1]);
    }
  }
  if (optind + 1 < argc)
    return UsageError("more than one INPUT");
  if (optind < argc) {
    options->input = argv[optind];
    options->has_input = true;
  }
  return -1;
}

// The combinations that make no sense, told before anything is read.
int CheckCombinations(const Options& o) {
  const bool sqlite = !o.database.empty();
  if (!sqlite && (!o.query.empty() || !o.header_query.empty()))
    return UsageError("--query and --header-query need --sqlite");
  if (sqlite && o.query.empty())
    return UsageError("--sqlite needs --query");
  if (sqlite && (o.csv.tsv || !o.csv.fields.empty() || o.has_input))
    return UsageError("--sqlite takes no INPUT, --tsv or --fields");
  if (!o.csv.split_by.empty() &&
      (o.out.empty() || o.out.find("{}") == std::string::npos))
    return UsageError("--split-by needs -o with {} where the value goes");
  return -1;
}

int Convert(const Options& o) {
  std::map<long, std::string> header = o.header;
  std::string err;
  formfill_table::SqliteSource db;
  const bool sqlite = !o.database.empty();
  if (sqlite && (!db.Open(o.database, &err) ||
                 (!o.header_query.empty() &&
                  !db.AddHeaderFields(o.header_query, &header, &err))))
    return Failure(err);

  int fd = STDIN_FILENO;
  std::string name = "standard input";
  if (!sqlite && o.has_input && o.input != "-") {
    name = o.input;
    fd = open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
      return Failure("cannot open " + name + ": " + strerror(errno));
  }

  // Output files are written under temporary names: an interrupted run
  // removes them.
  formfill_table::RemoveTempFilesOnSignals();
  std::string header_text;
  bool ok = formfill_table::HeaderText(header, &header_text, &err);
  if (ok) {
    formfill_table::TableWriter w(header_text, o.out,
                                  !o.csv.split_by.empty());
    std::vector<std::string> names;
    ok = w.Start(&err) &&
         (sqlite ? db.Convert(o.query, o.csv.split_by, &w, &err)
                 : formfill_table::ConvertCsv(fd, name, o.csv, &w, &err)) &&
         w.Finish(&names, &err);
    for (size_t i = 0; ok && i < names.size(); ++i)
      printf("%s\n", names[i].c_str());
  }
  if (fd != STDIN_FILENO)
    close(fd);
  if (!ok)
    return Failure(err);
  return fflush(stdout) == 0 ? 0 : Failure("cannot write standard output");
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  int status = ParseArgs(argc, argv, &options);
  if (status < 0)
    status = CheckCombinations(options);
  return status < 0 ? Convert(options) : status;
}
