// e2e_floor: what one batch costs at the least on this machine, measured so
// that bench/e2e_driver.sh can set the batch server's figures against it.
//
// One iteration does, one after the other:
//   - loopback: the bytes of the batch's call frame (exactly the size
//     `sapsim call` sends for that many rows of that structure) over an
//     already open loopback TCP connection to a thread that reads them all
//     and answers with 4 bytes;
//   - file write: create a new file, write the XML document's size in one
//     write, close; the file stays, as the server's files stay;
//   - log append: open the log for appending, write one log line's size,
//     close.
// It prints one JSON object with the medians and minimums of each part and
// of the iteration as a whole, in wall time and in processor time (the
// receiving thread's for the loopback part, the writing thread's for the
// rest: the work the server's side of a batch cannot do without).

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "sapsim/wire/call_message.h"
#include "sapsim/wire/control_messages.h"
#include "sapsim/wire/frame.h"
#include "sapsim/wire/frame_writer.h"
#include "sapsim/wire/gateway_caller.h"

namespace {

namespace w = sapsim::wire;
using Clock = std::chrono::steady_clock;

constexpr const char* kUsage =
    "usage: e2e_floor --port N --structure NAME --rows N --xml-bytes N --dir DIR\n"
    "                 [--program-id ID] [--function NAME] [--log-bytes N] [--repeat N]\n";

[[noreturn]] void Die(const std::string& message) {
  std::fprintf(stderr, "e2e_floor: %s\n", message.c_str());
  std::exit(1);
}

std::string Errno(const std::string& what) { return what + ": " + std::strerror(errno); }

// Owns one file descriptor.
class Fd {
 public:
  Fd() = default;
  explicit Fd(int fd) : fd_(fd) {}
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  Fd(Fd&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  Fd& operator=(Fd&& other) noexcept {
    if (this != &other) {
      Reset();
      fd_ = other.fd_;
      other.fd_ = -1;
    }
    return *this;
  }
  ~Fd() { Reset(); }
  int get() const { return fd_; }
  void Reset() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

 private:
  int fd_ = -1;
};

void WriteAll(int fd, const uint8_t* data, size_t size) {
  while (size > 0) {
    ssize_t n = ::write(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) throw std::runtime_error(Errno("write"));
    data += n;
    size -= static_cast<size_t>(n);
  }
}

void ReadAll(int fd, uint8_t* data, size_t size) {
  while (size > 0) {
    ssize_t n = ::read(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) throw std::runtime_error(Errno("read"));
    if (n == 0) throw std::runtime_error("the peer closed the connection");
    data += n;
    size -= static_cast<size_t>(n);
  }
}

void NoDelay(int fd) {
  int one = 1;
  ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
}

// Processor time of the calling thread: unlike the wall clock, it does not
// count the time other processes of a busy machine hold the processors. The
// thread clock is never served without a system call, so the call is made
// directly; on 64-bit Linux the kernel answers with two longs, seconds and
// nanoseconds.
Clock::duration ThreadCpu() {
  static_assert(sizeof(long) == 8, "64-bit Linux only");
  long parts[2] = {0, 0};
  if (::syscall(SYS_clock_gettime, CLOCK_THREAD_CPUTIME_ID, parts) != 0) {
    throw std::runtime_error(Errno("clock_gettime of the thread"));
  }
  return std::chrono::seconds(parts[0]) + std::chrono::nanoseconds(parts[1]);
}

// A loopback connection whose far end, a thread of its own, reads `size`
// bytes and answers with 4, as often as asked.
class LoopbackPeer {
 public:
  LoopbackPeer(size_t size, int rounds) : size_(size) {
    Fd listener(::socket(AF_INET, SOCK_STREAM, 0));
    if (listener.get() < 0) throw std::runtime_error(Errno("socket"));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;  // any free port
    if (::bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener.get(), 1) != 0) {
      throw std::runtime_error(Errno("bind/listen on 127.0.0.1"));
    }
    socklen_t length = sizeof address;
    if (::getsockname(listener.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
      throw std::runtime_error(Errno("getsockname"));
    }
    client_ = Fd(::socket(AF_INET, SOCK_STREAM, 0));
    if (client_.get() < 0 ||
        ::connect(client_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      throw std::runtime_error(Errno("connect to the loopback peer"));
    }
    Fd server(::accept(listener.get(), nullptr, nullptr));
    if (server.get() < 0) throw std::runtime_error(Errno("accept"));
    NoDelay(client_.get());
    NoDelay(server.get());
    peer_ = std::thread([this, rounds](Fd connection) { Serve(std::move(connection), rounds); }, std::move(server));
  }
  LoopbackPeer(const LoopbackPeer&) = delete;
  LoopbackPeer& operator=(const LoopbackPeer&) = delete;
  ~LoopbackPeer() { Join(); }

  int fd() const { return client_.get(); }
  // Ends the peer; only then are failure() and receive_cpu() complete.
  void Join() {
    client_.Reset();  // ends the peer's read if it still waits
    if (peer_.joinable()) peer_.join();
  }
  const std::string& failure() const { return failure_; }
  // Processor time the peer spent taking in each round's bytes.
  const std::vector<Clock::duration>& receive_cpu() const { return receive_cpu_; }

 private:
  void Serve(Fd connection, int rounds) {
    std::vector<uint8_t> in(size_);
    uint8_t answer[4] = {1, 0, 0, 0};
    try {
      for (int i = 0; i < rounds; ++i) {
        // The clock starts once the first bytes are there: waiting is not work.
        ssize_t first = 0;
        do first = ::recv(connection.get(), in.data(), 1, MSG_PEEK);
        while (first < 0 && errno == EINTR);
        const Clock::duration start = ThreadCpu();
        ReadAll(connection.get(), in.data(), in.size());
        WriteAll(connection.get(), answer, sizeof answer);
        receive_cpu_.push_back(ThreadCpu() - start);
      }
    } catch (const std::exception& e) {
      failure_ = e.what();
    }
  }

  size_t size_;
  Fd client_;
  std::thread peer_;
  std::string failure_;
  std::vector<Clock::duration> receive_cpu_;
};

// The size of the ROUTE_CALL frame `sapsim call` sends for `rows` lines of
// the structure: built the same way, with zero lines of the right length.
size_t CallFrameBytes(uint16_t port, const std::string& program_id, const std::string& function,
                      const std::string& structure, uint32_t rows, uint32_t* line_length) {
  w::GatewayCaller caller;
  std::string error;
  if (!caller.Connect("127.0.0.1", port, &error)) Die("sapsim not reached on port " + std::to_string(port) + ": " + error);
  w::ValueDesc layout;
  if (!caller.LookUp(structure, &layout, &error)) Die("structure " + structure + ": " + error);
  *line_length = layout.length;
  std::vector<uint8_t> lines(static_cast<size_t>(rows) * layout.length);
  w::FrameWriter request = w::BeginRouteCall(program_id);
  request.String(function);
  request.U32(0);
  request.U32(1);
  w::EncodeTableHead(request, "BATCH_TABLE", layout, rows);
  request.Borrow(lines.data(), lines.size());
  return w::kHeaderSize + request.PayloadSize();
}

// Named after the process, so that the runs of one benchmark never meet.
std::string XmlPath(const std::string& dir, int i) {
  return dir + "/floor_" + std::to_string(::getpid()) + "_" + std::to_string(i) + ".xml";
}

// Only after a failure; otherwise the files stay for whoever started the
// floor to remove (bench/e2e_driver.sh: at the end of its run, with the
// server's). A file that stays holds its pages in the page cache, so the next
// file needs memory the system has not just freed, exactly as the server's
// next file does. Removing them between runs let each run write into the
// pages the previous one had freed, which on this machine costs a fifth of
// writing into fresh ones, and no program that keeps its output gets that.
void RemoveFiles(const std::string& dir, int repeat) {
  for (int i = 0; i <= repeat; ++i) ::unlink(XmlPath(dir, i).c_str());
}

struct Series {
  std::vector<double> us;
  void Add(Clock::duration d) { us.push_back(std::chrono::duration<double, std::micro>(d).count()); }
  double Median() const {
    std::vector<double> sorted = us;
    std::sort(sorted.begin(), sorted.end());
    size_t n = sorted.size();
    return n % 2 == 1 ? sorted[n / 2] : (sorted[n / 2 - 1] + sorted[n / 2]) / 2;
  }
  double Min() const { return *std::min_element(us.begin(), us.end()); }
};

long Number(const std::map<std::string, std::string>& args, const std::string& name, long fallback, long lowest) {
  auto it = args.find(name);
  if (it == args.end()) {
    if (fallback < 0) Die(name + " is missing\n" + kUsage);
    return fallback;
  }
  char* end = nullptr;
  errno = 0;
  long value = std::strtol(it->second.c_str(), &end, 10);
  if (errno != 0 || end == it->second.c_str() || *end != '\0' || value < lowest) {
    Die(name + " wants a number of at least " + std::to_string(lowest) + ", not '" + it->second + "'");
  }
  return value;
}

}  // namespace

int main(int argc, char** argv) {
  std::map<std::string, std::string> args;
  for (int i = 1; i < argc; i += 2) {
    std::string name = argv[i];
    if (name.rfind("--", 0) != 0 || i + 1 >= argc) Die(std::string("bad argument '") + name + "'\n" + kUsage);
    args[name] = argv[i + 1];
  }
  for (const auto& entry : args) {
    static const char* known[] = {"--port", "--structure", "--rows", "--xml-bytes", "--dir",
                                  "--program-id", "--function", "--log-bytes", "--repeat"};
    if (std::find_if(std::begin(known), std::end(known), [&](const char* k) { return entry.first == k; }) ==
        std::end(known)) {
      Die("unknown option " + entry.first + "\n" + kUsage);
    }
  }
  if (args.count("--structure") == 0 || args.count("--dir") == 0) Die(std::string("--structure and --dir are needed\n") + kUsage);
  const auto port = static_cast<uint16_t>(Number(args, "--port", -1, 1));
  const auto rows = static_cast<uint32_t>(Number(args, "--rows", -1, 0));
  const auto xml_bytes = static_cast<size_t>(Number(args, "--xml-bytes", -1, 0));
  // "11/23/26 00:29:14 - Receive data: 001795393754683.xml" and CR LF.
  const auto log_bytes = static_cast<size_t>(Number(args, "--log-bytes", 55, 1));
  const int repeat = static_cast<int>(Number(args, "--repeat", 50, 1));
  const std::string dir = args["--dir"];
  const std::string program_id = args.count("--program-id") ? args["--program-id"] : "BATCHSRV";
  const std::string function = args.count("--function") ? args["--function"] : "Z_BATCH_ORDERS";
  signal(SIGPIPE, SIG_IGN);

  uint32_t line_length = 0;
  const size_t call_bytes = CallFrameBytes(port, program_id, function, args["--structure"], rows, &line_length);

  // Touched once so that page faults of first use stay out of the timing.
  std::vector<uint8_t> call(call_bytes, 0x20);
  std::vector<uint8_t> xml(xml_bytes, 0x20);
  std::vector<uint8_t> line(log_bytes, 0x20);
  const std::string log_path = dir + "/floor.log";
  Series loopback, file_write, log_append, total;
  Series receive_cpu, file_write_cpu, log_append_cpu, total_cpu;
  std::vector<Clock::duration> cpu_parts;
  try {
    // One extra round warms the connection, the page cache and the directory.
    LoopbackPeer peer(call_bytes, repeat + 1);
    for (int i = 0; i <= repeat; ++i) {
      const std::string xml_path = XmlPath(dir, i);
      const Clock::time_point t0 = Clock::now();
      WriteAll(peer.fd(), call.data(), call.size());
      uint8_t answer[4];
      ReadAll(peer.fd(), answer, sizeof answer);
      const Clock::time_point t1 = Clock::now();
      const Clock::duration c1 = ThreadCpu();
      {
        Fd file(::open(xml_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
        if (file.get() < 0) throw std::runtime_error(Errno("open " + xml_path));
        WriteAll(file.get(), xml.data(), xml.size());
      }
      const Clock::time_point t2 = Clock::now();
      const Clock::duration c2 = ThreadCpu();
      {
        Fd log(::open(log_path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
        if (log.get() < 0) throw std::runtime_error(Errno("open " + log_path));
        WriteAll(log.get(), line.data(), line.size());
      }
      const Clock::time_point t3 = Clock::now();
      const Clock::duration c3 = ThreadCpu();
      if (i == 0) continue;
      loopback.Add(t1 - t0);
      file_write.Add(t2 - t1);
      log_append.Add(t3 - t2);
      total.Add(t3 - t0);
      file_write_cpu.Add(c2 - c1);
      log_append_cpu.Add(c3 - c2);
      cpu_parts.push_back(c3 - c1);
    }
    peer.Join();
    if (!peer.failure().empty()) throw std::runtime_error("loopback peer: " + peer.failure());
    // The receiving side's work, as the server does it, plus the writes.
    for (int i = 1; i <= repeat; ++i) {
      receive_cpu.Add(peer.receive_cpu()[static_cast<size_t>(i)]);
      total_cpu.Add(peer.receive_cpu()[static_cast<size_t>(i)] + cpu_parts[static_cast<size_t>(i - 1)]);
    }
  } catch (const std::exception& e) {
    RemoveFiles(dir, repeat);
    Die(e.what());
  }

  std::printf(
      "{\"rows\": %u, \"line_length\": %u, \"call_bytes\": %zu, \"xml_bytes\": %zu, \"log_bytes\": %zu, "
      "\"repeat\": %d, \"loopback_us\": %.1f, \"file_write_us\": %.1f, \"log_append_us\": %.1f, "
      "\"floor_us\": %.1f, \"loopback_min_us\": %.1f, \"file_write_min_us\": %.1f, \"log_append_min_us\": %.1f, "
      "\"floor_min_us\": %.1f, \"receive_cpu_us\": %.1f, \"file_write_cpu_us\": %.1f, \"log_append_cpu_us\": %.1f, "
      "\"floor_cpu_us\": %.1f, \"floor_cpu_min_us\": %.1f}\n",
      rows, line_length, call_bytes, xml_bytes, log_bytes, repeat, loopback.Median(), file_write.Median(),
      log_append.Median(), total.Median(), loopback.Min(), file_write.Min(), log_append.Min(), total.Min(),
      receive_cpu.Median(), file_write_cpu.Median(), log_append_cpu.Median(), total_cpu.Median(), total_cpu.Min());
  return 0;
}
