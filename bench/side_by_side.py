#!/usr/bin/python3
# The viewer beside PulseView on the same capture, both full-screen on an Xvfb of their own:
# wheel notches and drag moves sent through XTEST, each timed from its delivery until neither
# the application nor the X server has used the processor for QUIET seconds. Prints the medians
# and the ratios `pan step vs PulseView: <r>x` and `wheel step vs PulseView: <r>x`.
#   side_by_side.py VORNVIEW VORN_GENSR [STEPS]
# The X server takes a free display number of its own (-displayfd), or VORN_BENCH_DISPLAY's.
import glob
import os
import shutil
import statistics
import subprocess
import sys
import time

from Xlib import X, display
from Xlib.ext import xtest

WIDTH, HEIGHT = 1920, 1080
QUIET = 0.06
CAPTURE = '/tmp/vorn-bench-10M.sr'


def cpu_ns(pids):
    total = 0
    for pid in pids:
        for stat in glob.glob('/proc/%d/task/*/schedstat' % pid):
            try:
                with open(stat) as f:
                    total += int(f.read().split()[0])
            except (OSError, ValueError):
                pass  # a thread that ended meanwhile
    return total


def settle(pids, since):
    last, changed = cpu_ns(pids), since
    while True:
        time.sleep(0.0005)
        now, used = time.perf_counter(), cpu_ns(pids)
        if used != last:
            last, changed = used, now
        elif now - changed > QUIET:
            return changed - since


def find_window(d, words, timeout=30):
    end = time.time() + timeout
    while time.time() < end:
        for w in d.screen().root.query_tree().children:
            try:
                name = w.get_wm_name() or ''
                attrs = w.get_attributes()
            except Exception:
                continue
            if attrs.map_state == X.IsViewable and any(word in str(name) for word in words):
                return w
        time.sleep(0.2)
    return None


def steps(d, pids, kind, count, x, y):
    xtest.fake_input(d, X.MotionNotify, x=x, y=y)
    d.sync()
    settle(pids, time.perf_counter())
    if kind == 'pan':
        xtest.fake_input(d, X.ButtonPress, 1)
        d.sync()
        settle(pids, time.perf_counter())
    times = []
    for k in range(count):
        if kind == 'wheel':
            button = 4 if k % 2 == 0 else 5
            xtest.fake_input(d, X.ButtonPress, button)
            xtest.fake_input(d, X.ButtonRelease, button)
        else:
            xtest.fake_input(d, X.MotionNotify, detail=1, x=40 if (k // 5) % 2 == 0 else -40, y=0)
        d.sync()
        since = time.perf_counter()
        times.append(settle(pids, since) * 1000)
        time.sleep(0.05)
    if kind == 'pan':
        xtest.fake_input(d, X.ButtonRelease, 1)
        d.sync()
    return statistics.median(times)


def measure(command, words, point, count, env, xserver):
    app = subprocess.Popen(command, env=env, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        d = display.Display(env['DISPLAY'])
        window = find_window(d, words)
        if window is None:
            return None
        window.configure(x=0, y=0, width=WIDTH, height=HEIGHT)
        d.sync()
        time.sleep(3)  # loading and the first frames
        pids = [app.pid, xserver.pid]
        return {kind: steps(d, pids, kind, count, *point) for kind in ('wheel', 'pan')}
    finally:
        app.kill()
        app.wait()


def main():
    vornview, gensr = sys.argv[1], sys.argv[2]
    count = int(sys.argv[3]) if len(sys.argv) > 3 else 40
    if not shutil.which('pulseview') or not shutil.which('Xvfb'):
        print('pan step vs PulseView: not measured (pulseview or Xvfb missing)')
        return
    if not os.path.exists(CAPTURE):
        subprocess.run([gensr, CAPTURE, '10000000', '1'], check=True)
    fixed = os.environ.get('VORN_BENCH_DISPLAY', '').lstrip(':')
    reader, writer = os.pipe()
    xserver = subprocess.Popen(['Xvfb'] + ([':' + fixed] if fixed else []) +
                               ['-displayfd', str(writer), '-screen', '0', '%dx%dx24' % (WIDTH, HEIGHT), '-nolisten', 'tcp'],
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, pass_fds=(writer,))
    os.close(writer)
    try:
        # The server writes its number once it accepts connections.
        with os.fdopen(reader) as f:
            number = f.readline().strip()
        if not number:
            print('pan step vs PulseView: not measured (Xvfb did not start)')
            return
        env = dict(os.environ, DISPLAY=':' + number)
        env.pop('QT_QPA_PLATFORM', None)
        # Each at a point inside its trace area: our plot fills the window, PulseView's first row
        # lies under its ruler.
        ours = measure([vornview, CAPTURE], ['VornView'], (1100, 500), count, env, xserver)
        theirs = measure(['pulseview', CAPTURE], ['PulseView'], (1100, 150), count, env, xserver)
    finally:
        xserver.kill()
        xserver.wait()
    if not ours or not theirs:
        print('pan step vs PulseView: not measured (a window never appeared)')
        return
    for kind in ('pan', 'wheel'):
        print('%s step vs PulseView: %.1fx (viewer %.1f ms, PulseView %.1f ms, 10 M samples, %dx%d, Xvfb)' % (
            kind, ours[kind] / theirs[kind], ours[kind], theirs[kind], WIDTH, HEIGHT))


main()
