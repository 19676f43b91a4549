// A growable array with the framework's interface. An index out of range
// throws std::out_of_range instead of asserting.
#pragma once
#include <stdexcept>
#include <vector>

template <class TYPE, class ARG_TYPE = const TYPE &>
class CArray {
public:
  CArray() = default;
  virtual ~CArray() = default;

  int GetSize() const { return static_cast<int>(items_.size()); }
  int GetCount() const { return GetSize(); }
  int GetUpperBound() const { return GetSize() - 1; }
  bool IsEmpty() const { return items_.empty(); }
  void SetSize(int newSize, int /*growBy*/ = -1) {
    if (newSize < 0) throw std::out_of_range("CArray::SetSize");
    items_.resize(static_cast<std::size_t>(newSize));
  }
  void RemoveAll() { items_.clear(); }

  TYPE &ElementAt(int i) { return items_.at(Index(i)); }
  const TYPE &ElementAt(int i) const { return items_.at(Index(i)); }
  TYPE GetAt(int i) const { return items_.at(Index(i)); }
  void SetAt(int i, ARG_TYPE v) { items_.at(Index(i)) = v; }
  TYPE &operator[](int i) { return ElementAt(i); }
  const TYPE &operator[](int i) const { return ElementAt(i); }
  TYPE *GetData() { return items_.data(); }
  const TYPE *GetData() const { return items_.data(); }

  int Add(ARG_TYPE v) { items_.push_back(v); return GetSize() - 1; }
  void InsertAt(int i, ARG_TYPE v, int count = 1) {
    if (i < 0 || i > GetSize() || count < 0) throw std::out_of_range("CArray::InsertAt");
    items_.insert(items_.begin() + i, static_cast<std::size_t>(count), v);
  }
  void RemoveAt(int i, int count = 1) {
    if (i < 0 || count < 0 || i + count > GetSize()) throw std::out_of_range("CArray::RemoveAt");
    items_.erase(items_.begin() + i, items_.begin() + i + count);
  }

private:
  static std::size_t Index(int i) {
    if (i < 0) throw std::out_of_range("CArray index");
    return static_cast<std::size_t>(i);
  }
  std::vector<TYPE> items_;
};
