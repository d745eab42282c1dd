// Lets a test do what an ordinary user would: root may open everything.
#pragma once

#include <stdexcept>
#include <unistd.h>

// The effective user is an ordinary one for a scope; nothing changes for whoever is one already.
// Files that he is to own or to read are the test's business.
class OrdinaryUser {
 public:
  static constexpr unsigned ID = 65534;  // "nobody", as user and as group

  OrdinaryUser() : former_(geteuid()) { _become(former_ == 0 ? ID : former_); }
  ~OrdinaryUser() { _become(former_); }
  OrdinaryUser(const OrdinaryUser&) = delete;
  OrdinaryUser& operator=(const OrdinaryUser&) = delete;

 private:
  static void _become(uid_t user) {
    if (seteuid(user) != 0) {
      throw std::runtime_error("cannot change the effective user");
    }
  }

  const uid_t former_;
};
