// In-place sort: a depth-limited median-of-three quicksort that leaves short
// stretches alone, finished by one insertion pass; short arrays go straight
// to selection sort. No allocation.
#ifndef ORVO_ITP_SUPPORT_SORT_H
#define ORVO_ITP_SUPPORT_SORT_H

#include <cstdint>
#include <utility>

namespace orvo {
namespace sortimpl {

template <class T, class Size, class Less>
void sift_down(T* a, Size root, Size n, Less& less) {
  for (;;) {
    Size child = 2 * root + 1;
    if (child >= n) return;
    if (child + 1 < n && less(a[child], a[child + 1])) ++child;
    if (!less(a[root], a[child])) return;
    std::swap(a[root], a[child]);
    root = child;
  }
}

template <class T, class Size, class Less>
void heap_sort(T* a, Size n, Less& less) {
  for (Size i = n / 2; i-- > 0;)
    sift_down(a, i, n, less);
  for (Size end = n; end-- > 1;) {
    std::swap(a[0], a[end]);
    sift_down(a, Size(0), end, less);
  }
}

template <class T, class Less>
T const& median_of_three(T const& x, T const& y, T const& z, Less& less) {
  if (less(x, y)) {
    if (less(y, z)) return y;
    return less(x, z) ? z : x;
  }
  if (less(x, z)) return x;
  return less(y, z) ? z : y;
}

// Rearranges a[0..n) into consecutive stretches, each no greater than the
// next, each either shorter than 16 elements or sorted. `depth` partition
// levels are allowed before a stretch falls back to heap sort.
template <class T, class Size, class Less>
void do_sort(T* a, Size n, Less less, std::int32_t depth) {
  while (n >= 16) {
    if (depth == 0) {
      heap_sort(a, n, less);
      return;
    }
    --depth;
    T const p = median_of_three(a[0], a[n / 2], a[n - 1], less);
    Size i = 0;
    Size j = n - 1;
    for (;;) {
      while (less(a[i], p))
        ++i;
      while (less(p, a[j]))
        --j;
      if (i >= j) break;
      std::swap(a[i], a[j]);
      ++i;
      --j;
    }
    do_sort(a, i, less, depth);
    a += i;
    n -= i;
  }
}

}  // namespace sortimpl

// Sorts a[0..n) ascending under `less`, in place.
template <class T, class Size, class Less>
void sort(T* a, Size n, Less less) {
  if (n > 15) {
    sortimpl::do_sort(a, n, less, 32);
    for (Size i = 1; i < n; ++i) {
      T x = a[i];
      Size j = i;
      for (; j > 0 && less(x, a[j - 1]); --j)
        a[j] = a[j - 1];
      a[j] = x;
    }
    return;
  }
  for (Size i = 0; i + 1 < n; ++i) {
    Size m = i;
    for (Size k = i + 1; k < n; ++k)
      if (less(a[k], a[m])) m = k;
    std::swap(a[i], a[m]);
  }
}

}  // namespace orvo

#endif  // ORVO_ITP_SUPPORT_SORT_H
