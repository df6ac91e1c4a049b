/* A program that does nothing: what a start costs at least. */
#ifdef _WIN32
#include <windows.h>

int WINAPI WinMain(HINSTANCE instance, HINSTANCE previous, LPSTR line, int show) {
  (void)instance, (void)previous, (void)line, (void)show;
  return 0;
}
#else
int main(void) { return 0; }
#endif
