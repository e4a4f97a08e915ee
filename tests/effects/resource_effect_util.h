// Helpers for effects that load wave resources: a scratch resource root,
// wave files written through the library, scrambled copies, and the search
// for clear copies left behind.
#pragma once

#include <dirent.h>

#include <cstdio>
#include <string>
#include <vector>

#include "files/file_test_util.h"
#include "ondrel.h"

namespace ondrel_test {

// A scratch directory installed as the only resource root while it lives.
class ResourceRoot {
 public:
  ResourceRoot() {
    root_ = dir_.path() + "/";
    const char* roots[] = {root_.c_str()};
    ONDREL2::ondrel_set_resource_root(roots, 1);
  }
  ~ResourceRoot() { ONDREL2::ondrel_set_resource_root(nullptr, 0); }
  ResourceRoot(const ResourceRoot&) = delete;
  ResourceRoot& operator=(const ResourceRoot&) = delete;

  std::string File(const std::string& name) const { return root_ + name; }

  // Writes interleaved 32-bit float frames as a wave file below the root.
  void WriteWave(const std::string& name, int rate, int channels,
                 const std::vector<float>& samples) const {
    ONDREL2::WaveFile w;
    ASSERT_TRUE(w.SetFilePathUTF8(File(name).c_str(), true, false));
    w.SetChannels(channels);
    w.SetSampleRate(rate);
    w.SetSampleFormat(ONDREL2::SF_FLOAT32);
    w.SetupDone();
    w.WriteFrames(samples.data(), static_cast<int32_t>(samples.size()) / channels);
  }

  // Replaces the file with its scrambled form (the scramble is its own
  // inverse).
  void Scramble(const std::string& name) const {
    const std::string plain = File(name), tmp = File(name + ".tmp");
    ASSERT_TRUE(ONDREL2::decrypt_file(plain.c_str(), tmp.c_str()));
    ASSERT_EQ(std::rename(tmp.c_str(), plain.c_str()), 0);
  }

  // Names of the files in the root that end in "-dec".
  std::vector<std::string> ClearCopies() const {
    std::vector<std::string> found;
    if (DIR* d = opendir(dir_.path().c_str())) {
      while (dirent* e = readdir(d)) {
        const std::string n = e->d_name;
        if (n.size() >= 4 && n.compare(n.size() - 4, 4, "-dec") == 0) found.push_back(n);
      }
      closedir(d);
    }
    return found;
  }

 private:
  ScratchDir dir_;
  std::string root_;
};

// Stores `text` with its terminator in the binary parameter `index`.
inline void SetText(ONDREL2::AEffect* fx, int index, const std::string& text) {
  fx->dispatcher(fx, ONDREL2::ONDREL_OP_SET_PARAM_DATA, index,
                 static_cast<int32_t>(text.size() + 1), const_cast<char*>(text.c_str()), 0.0f);
}

}  // namespace ondrel_test
