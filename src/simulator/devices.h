// The devices that send: who is busy, and which of them serves a queue.
//
// - Names come from dstat, the devices of a class from its file. Without dstat
//   there is one device, number 0.
// - A change of state goes to the status segment, when there is one.
#ifndef SIMULATOR_DEVICES_H_
#define SIMULATOR_DEVICES_H_

#include <string>
#include <vector>

namespace sim {

class Devices {
 public:
  explicit Devices(const std::string& root);

  // How many records the status segment needs: the highest number and one.
  int count() const;
  // Tells that all of them are idle.
  void Announce() const;
  // Makes an idle device that serves the queue busy: its number, -1 without
  // one. A queue that is neither a device nor a class is served by all.
  int Take(const std::string& queue);
  void Release(int device);
  const std::string& name(int device) const;

 private:
  struct Device {
    std::string name;
    int number;
    bool busy;
  };
  size_t IndexOf(int device) const;
  std::vector<std::string> Serving(const std::string& queue) const;

  std::string root_;
  std::vector<Device> devices_;
};

}  // namespace sim

#endif  // SIMULATOR_DEVICES_H_
