// Keeps the object library non-empty while its first classes are written.
namespace ky::detail {
int objectAnchor() { return 0; }
}
