// Descriptor sets under a program read from the input: alloc, set, clr,
// isset, zero, copy and free on two sets, with small limits, each step
// checked against a plain model of what the set must hold.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "ZoNetwork/ZoFdset.h"

namespace {

struct Model {
  bool allocated = false;
  bool heapList = false;
  uint32_t capacity = 0;
  uint32_t limit = 0;
  std::vector<int> members;
};

void Check(bool ok) {
  if (!ok) std::abort();
}

bool Has(const Model& m, int fd) {
  for (int x : m.members)
    if (x == fd) return true;
  return false;
}

// The set as the model says it is.
void Compare(xnfdset_t* set, const Model& m) {
  if (!m.allocated) {
    Check(set->set_ptr == nullptr);
    Check(xnfdset_isset(1, set) == -2);
    Check(xnfdset_get_maxfd(set) == -1);
    return;
  }
  Check(set->set_ptr != nullptr);
  Check(set->capacity == m.capacity);
  Check(set->limit == m.limit);
  Check(set->count == m.members.size());
  for (size_t i = 0; i < m.members.size(); ++i) {
    Check(set->members[i] == m.members[i]);
    Check(xnfdset_isset(static_cast<ZONET_SOCKET>(m.members[i]), set) == 1);
  }
  Check(xnfdset_get_maxfd(set) == (m.members.empty() ? -1 : 1));
}

int SetInModel(Model& m, uint64_t sock) {
  if (!m.allocated) return -2;
  if (sock > 0x7fffffffu) return -3;
  const int fd = static_cast<int>(sock);
  if (Has(m, fd)) return 0;
  if (m.members.size() == m.capacity && !m.heapList && m.capacity < m.limit) {
    m.heapList = true;
    m.capacity = m.limit;
  }
  if (m.members.size() >= m.capacity) return -1;
  m.members.push_back(fd);
  return 0;
}

int CopyInModel(Model& dst, const Model& src) {
  if (!dst.allocated || !src.allocated) return -1;
  if (&dst == &src) return 0;
  if (src.capacity > dst.limit) return -1;
  if (src.capacity > dst.capacity && !dst.heapList && dst.capacity < dst.limit) {
    dst.heapList = true;
    dst.capacity = dst.limit;
  }
  if (src.capacity > dst.capacity) return -1;
  dst.members = src.members;
  dst.capacity = src.capacity;
  return 0;
}

class Reader {
public:
  Reader(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}
  bool More() const { return m_pos < m_size; }
  uint8_t Byte() { return m_pos < m_size ? m_data[m_pos++] : 0; }
  uint16_t Word() { return static_cast<uint16_t>(Byte() | Byte() << 8); }

private:
  const uint8_t* m_data;
  size_t m_size;
  size_t m_pos = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  xnfdset_t sets[2];
  Model models[2];
  for (auto& s : sets) {
    s.set_ptr = nullptr;
    s.members = nullptr;
  }
  const int savedMaxsock = xnfdset_maxsock_get();
  Reader in(data, size);
  while (in.More()) {
    const uint8_t op = in.Byte();
    const int which = op >> 7;
    xnfdset_t* set = &sets[which];
    Model& m = models[which];
    switch (op & 0x0f) {
      case 0: {  // alloc with a small limit, from the argument or the process-wide one
        const uint8_t arg = in.Byte();
        int limit = arg & 1 ? static_cast<int>(arg) * 16 : static_cast<int>(arg) - 100;
        if (arg & 2) {
          xnfdset_maxsock_set(limit);
          limit = xnfdset_maxsock_get();
        }
        xnfdset_free(set);
        Check(xnfdset_alloc(limit, set) == 0);
        m = Model();
        m.allocated = true;
        m.capacity = 1024;
        m.limit = static_cast<uint32_t>(limit < 1024 ? 1024 : limit);
        break;
      }
      case 1:
      case 2: {  // set one descriptor, sometimes one that cannot be
        const uint16_t w = in.Word();
        const uint64_t sock = (w & 0xf000) == 0xf000 ? (uint64_t(1) << 31) + w : w % 9000;
        Check(xnfdset_set(sock, set) == SetInModel(m, sock));
        break;
      }
      case 3: {  // set a run of descriptors, to reach the limits quickly
        const uint16_t start = in.Word() % 8000;
        const uint16_t n = in.Word() % 2100;
        for (uint16_t i = 0; i < n; ++i) Check(xnfdset_set(start + i, set) == SetInModel(m, start + i));
        break;
      }
      case 4: {  // clr
        const int fd = in.Word() % 9000;
        const int expected = m.allocated ? 0 : -2;
        Check(xnfdset_clr(static_cast<ZONET_SOCKET>(fd), set) == expected);
        for (size_t i = 0; i < m.members.size(); ++i) {
          if (m.members[i] == fd) {
            m.members.erase(m.members.begin() + static_cast<std::ptrdiff_t>(i));
            break;
          }
        }
        break;
      }
      case 5: {  // isset of anything
        const int fd = in.Word() % 9000;
        const int rc = xnfdset_isset(static_cast<ZONET_SOCKET>(fd), set);
        Check(rc == (m.allocated ? (Has(m, fd) ? 1 : 0) : -2));
        break;
      }
      case 6:  // zero
        xnfdset_zero(set);
        m.members.clear();
        break;
      case 7: {  // copy from the other set, or from itself
        const xnfdset_t* source = (op & 0x10) ? set : &sets[1 - which];
        const Model& sourceModel = (op & 0x10) ? m : models[1 - which];
        const int expected = CopyInModel(m, sourceModel);
        Check(xnfdset_copy_fdset(set, source) == expected);
        break;
      }
      case 8:  // free
        xnfdset_free(set);
        m = Model();
        break;
      default:
        break;
    }
    Compare(&sets[0], models[0]);
    Compare(&sets[1], models[1]);
  }
  xnfdset_free(&sets[0]);
  xnfdset_free(&sets[1]);
  xnfdset_maxsock_set(savedMaxsock);
  return 0;
}
