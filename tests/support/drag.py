"""Drops data on a window by the XDND protocol, as another program would.

Usage: drag.py WINDOW X Y TYPE DATA, with X and Y in screen coordinates. Ends when the window has accepted the drop.
"""

import sys
import time
from ctypes import CDLL, POINTER, Structure, Union, byref, c_char_p, c_int, c_long, c_ulong, c_void_p, pointer

CLIENT_MESSAGE, SELECTION_NOTIFY, SELECTION_REQUEST = 33, 31, 30
HEAD = [("type", c_int), ("serial", c_ulong), ("send_event", c_int), ("display", c_void_p)]


class Message(Structure):
    _fields_ = [*HEAD, ("window", c_ulong), ("kind", c_ulong), ("format", c_int), ("data", c_long * 5)]


class Request(Structure):
    _fields_ = [*HEAD, *[(name, c_ulong) for name in ("owner", "requestor", "selection", "target", "property", "time")]]


class Notice(Structure):
    _fields_ = [*HEAD, *[(name, c_ulong) for name in ("requestor", "selection", "target", "property", "time")]]


class Event(Union):
    _fields_ = [("type", c_int), ("message", Message), ("request", Request), ("notice", Notice), ("pad", c_long * 24)]


x11 = CDLL("libX11.so.6")
x11.XOpenDisplay.restype = c_void_p
x11.XDefaultRootWindow.restype = x11.XCreateSimpleWindow.restype = x11.XInternAtom.restype = c_ulong
x11.XDefaultRootWindow.argtypes = x11.XPending.argtypes = x11.XFlush.argtypes = [c_void_p]
x11.XInternAtom.argtypes = [c_void_p, c_char_p, c_int]
x11.XCreateSimpleWindow.argtypes = [c_void_p, c_ulong, *[c_int] * 5, c_ulong, c_ulong]
x11.XSetSelectionOwner.argtypes = [c_void_p, c_ulong, c_ulong, c_ulong]
x11.XSendEvent.argtypes = [c_void_p, c_ulong, c_int, c_long, POINTER(Event)]
x11.XNextEvent.argtypes = [c_void_p, POINTER(Event)]
x11.XChangeProperty.argtypes = [c_void_p, c_ulong, c_ulong, c_ulong, c_int, c_int, c_char_p, c_int]

target, x, y = map(int, sys.argv[1:4])
display = x11.XOpenDisplay(None)
source = x11.XCreateSimpleWindow(display, x11.XDefaultRootWindow(display), 0, 0, 1, 1, 0, 0, 0)


def atom(name: str) -> int:
    return x11.XInternAtom(display, name.encode(), 0)


def send(kind: str, *data: int) -> None:
    message = Message(CLIENT_MESSAGE, window=target, kind=atom(kind), format=32, data=(source, *data))
    x11.XSendEvent(display, target, 0, 0, pointer(Event(message=message)))


def answer(request: Request) -> None:
    data = sys.argv[5].encode()
    x11.XChangeProperty(display, request.requestor, request.property, request.target, 8, 0, data, len(data))
    notice = Notice(SELECTION_NOTIFY, 0, 0, None, *[getattr(request, name) for name, _ in Notice._fields_[4:]])
    x11.XSendEvent(display, request.requestor, 0, 0, pointer(Event(notice=notice)))


x11.XSetSelectionOwner(display, atom("XdndSelection"), source, 0)
send("XdndEnter", 3 << 24, atom(sys.argv[4]), 0, 0)
send("XdndPosition", 0, x << 16 | y, 0, atom("XdndActionCopy"))
send("XdndDrop", 0, 0)

event = Event()
deadline = time.monotonic() + 30
while not (event.type == CLIENT_MESSAGE and event.message.kind == atom("XdndFinished")):
    x11.XFlush(display)
    if not x11.XPending(display):
        assert time.monotonic() < deadline, "the drop was not accepted"
        time.sleep(0.01)
        continue
    x11.XNextEvent(display, byref(event))
    if event.type == SELECTION_REQUEST:
        answer(event.request)
