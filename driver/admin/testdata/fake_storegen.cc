// A stand-in for the page generator in storegen-admin's tests. Like the real
// one it works in its own directory, sends its output to "pgstatus.log" with
// "-b", and holds both run locks while it runs. It records its arguments (and
// any web server variable in its environment) in "launches.log", writes
// "running" once it holds the locks, waits until a file "release" exists,
// then prints "problems.txt" (if any) and the report line with the code in
// "rc.txt" (0 if absent), "messages.txt" (if any) to standard error, and
// writes "finished".
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

namespace {

int Lock(const char* name) {
  int fd = open(name, O_RDWR | O_CREAT, 0644);
  if (fd >= 0 && lockf(fd, F_TLOCK, 1) != 0) {
    close(fd);
    fd = -1;
  }
  return fd;
}

std::string Slurp(const char* name) {
  std::ifstream in(name, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

bool Exists(const char* name) {
  return access(name, F_OK) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::string self = argv[0];
  std::string dir = self.substr(0, self.find_last_of('/') + 1);
  if (!dir.empty() && chdir(dir.c_str()) != 0) return 2;
  {
    // Arguments one by one, then the web server's variables it was left.
    std::ofstream launches("launches.log", std::ios::app);
    for (int i = 1; i < argc; ++i)
      launches << (i > 1 ? "|" : "") << argv[i];
    for (const char* name : {"SCRIPT_NAME", "QUERY_STRING", "REQUEST_METHOD", "PATH_INFO",
                             "PATH_TRANSLATED", "HTTP_HOST"}) {
      if (std::getenv(name) != nullptr) launches << "|env:" << name;
    }
    launches << "\n";
  }
  bool report = false;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "-b") == 0) {
      if (std::freopen("pgstatus.log", "w", stdout) == nullptr) return 2;
      report = true;
    }
  }
  int pid_lock = Lock("pgstatus.pid");
  int companion = Lock("pgstatus.lck");
  if (pid_lock < 0 || companion < 0) {
    std::printf("Page generator already running\n");
    return -50;
  }
  std::ofstream("running") << "yes";
  for (int i = 0; i < 1200 && !Exists("release"); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  int rc = std::atoi(Slurp("rc.txt").c_str());
  std::fputs(Slurp("problems.txt").c_str(), stdout);
  std::fputs(Slurp("messages.txt").c_str(), stderr);
  if (report) std::printf("ReturnCode=%d", rc);
  std::fclose(stdout);
  close(pid_lock);
  close(companion);
  unlink("pgstatus.pid");
  std::ofstream("finished") << "yes";
  return rc;
}
