// The example that measures, beside the development notary and service.
#include "tests/integration/LocalService.h"

#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <regex>

namespace {

using namespace kvltest;

class MetricsExampleTest : public LocalService {
 protected:
  // What the example shows of its fetches, by name.
  [[nodiscard]] std::map<std::string, double> metricsOf(const std::vector<std::string>& paths) {
    std::vector<std::string> command{KVL_METRICS_EXAMPLE};
    command.insert(command.end(), paths.begin(), paths.end());
    const auto file = bus.directory() / "metrics.txt";
    const int output = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    status_ =
        ChildProcess(command, environmentWith({}), bus.directory() / "metrics.log", output).wait();
    close(output);
    const std::regex comment("# TYPE [a-z_]+ (counter|histogram)");
    const std::regex sample("([a-z_]+(?:\\{[a-z]+=\"[^\"]*\"\\})?) ([0-9.e+-]+)");
    std::map<std::string, double> found;
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);) {
      std::smatch parts;
      if (std::regex_match(line, parts, sample)) {
        EXPECT_TRUE(found.emplace(parts[1], std::stod(parts[2])).second) << line;
      } else {
        EXPECT_TRUE(std::regex_match(line, comment)) << line;
      }
    }
    return found;
  }

  int status_ = -1;
};

TEST_F(MetricsExampleTest, CountsWhatHappened) {
  offerNotary();
  startService();
  auto metrics = metricsOf({"status", "echo?secret=1", "nowhere"});
  EXPECT_EQ(status_, 0);
  EXPECT_EQ(metrics["kvlocal_notarisations_total{outcome=\"granted\"}"], 1);
  EXPECT_EQ(metrics["kvlocal_requests_total{status=\"200\"}"], 2);
  EXPECT_EQ(metrics["kvlocal_requests_total{status=\"404\"}"], 1);
  EXPECT_EQ(metrics["kvlocal_connections_total"], 1);
  EXPECT_GT(metrics["kvlocal_received_bytes_total"], 0);
  EXPECT_EQ(metrics["kvlocal_request_seconds_count"], 3);
  EXPECT_EQ(metrics["kvlocal_request_seconds_bucket{le=\"+Inf\"}"], 3);
  EXPECT_LE(metrics["kvlocal_request_seconds_bucket{le=\"0.005\"}"],
            metrics["kvlocal_request_seconds_bucket{le=\"10\"}"]);
  EXPECT_GT(metrics["kvlocal_request_seconds_sum"], 0);
  EXPECT_EQ(metrics["kvlocal_notarisation_seconds_count"], 1);
}

}  // namespace
