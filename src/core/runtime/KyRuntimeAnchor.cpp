// Keeps the runtime library non-empty while its first classes are written.
namespace ky::detail {
int runtimeAnchor() { return 0; }
}
