// The floor the console's idle memory is read against: a bare Xlib program
// with one mapped window, a backbuffer pixmap of the window's size and one
// core font, as the console's GUI platform holds them, and nothing else. It
// sleeps in XNextEvent until the X server or a signal ends it; bench/idle-memory.sh
// starts it on its private Xvfb and reads its /proc figures beside the console's.
#include <X11/Xlib.h>

#include <cstdio>

int main() {
    Display* display = XOpenDisplay(nullptr);
    if (!display) {
        std::fprintf(stderr, "baseline_xlib_window: cannot open the display\n");
        return 1;
    }
    const int screen = DefaultScreen(display);
    const unsigned width = 960, height = 640;
    const Window window = XCreateSimpleWindow(display, RootWindow(display, screen), 0, 0, width, height, 0,
                                              BlackPixel(display, screen), WhitePixel(display, screen));
    XSelectInput(display, window, ExposureMask | StructureNotifyMask);
    const Pixmap backbuffer = XCreatePixmap(display, window, width, height, DefaultDepth(display, screen));
    const GC gc = XCreateGC(display, window, 0, nullptr);
    XFontStruct* font = XLoadQueryFont(display, "fixed");
    if (font) XSetFont(display, gc, font->fid);
    XSetForeground(display, gc, WhitePixel(display, screen));
    XFillRectangle(display, backbuffer, gc, 0, 0, width, height);
    XSetForeground(display, gc, BlackPixel(display, screen));
    XDrawString(display, backbuffer, gc, 20, 40, "baseline", 8);
    XMapWindow(display, window);
    std::printf("baseline_xlib_window ready\n");
    std::fflush(stdout);
    for (;;) {
        XEvent event;
        XNextEvent(display, &event);
        if (event.type == Expose && event.xexpose.count == 0)
            XCopyArea(display, backbuffer, window, gc, 0, 0, width, height, 0, 0);
    }
}
