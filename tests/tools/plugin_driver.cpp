// Runs the plug-in loader in a process of its own, so that its once-only state starts fresh:
//   plugin_driver scan N     N full scans, then the table rows and the registered formats
//   plugin_driver threads    8 threads call loadImfPlugins at once
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include <vora/imf.h>
#include <vora/plugins.h>

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "scan";
  if (mode == "threads") {
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) threads.emplace_back(loadImfPlugins);
    for (auto& t : threads) t.join();
  } else {
    for (int i = 0, n = argc > 2 ? atoi(argv[2]) : 1; i < n; ++i) {
      fprintf(stderr, "-- scan %d\n", i + 1);
      if (loadAllIMFPlugins() != 0) return 1;
    }
  }
  for (const std::string& d : vora::pluginSearchPath()) printf("dir %s\n", d.c_str());
  for (const auto& [name, key] : vora::pluginTable()) printf("row %s %s\n", name.c_str(), key.c_str());
  for (int i = 0; const IMF_format* f = IMF_format_at(i); ++i) printf("format %s %s\n", f->key, f->path);
  for (int i = 0; i < IMF_refused_count(); ++i) printf("refused %s\n", IMF_refused_at(i));
  return 0;
}
