#!/usr/bin/python3
"""edit-config and get-config of N routes through ocni-netconfd (ncclient over SSH on 127.0.0.1)
against `ocni-map edit` and `ocni-map get` of the same routes; and the idle server's memory.

usage: bench/netconf_scale.py BUILD_DIR [N ...]     (default N: 10000 100000; a Release build)

Wall-clock seconds, fastest of three runs each, every run on a fresh store. The NETCONF figure
is the client's: send, server work, reply, and ncclient's own parsing of the reply.
"""
import os
import signal
import socket
import subprocess
import sys
import tempfile
import time

from ncclient import manager

BUILD = sys.argv[1] if len(sys.argv) > 1 else 'build-rel'
SIZES = [int(n) for n in sys.argv[2:]] or [10000, 100000]
MAP, SERVER = f'{BUILD}/tools/ocni-map', f'{BUILD}/server/ocni-netconfd'
NI = 'http://openconfig.net/yang/network-instance'
NC = 'urn:ietf:params:xml:ns:netconf:base:1.0'


def document(n):
    """N routes in the default instance, one next hop each (every fourth with a metric)."""
    out = [f'<network-instances xmlns="{NI}"><network-instance><name>default</name><protocols><protocol>'
           '<identifier xmlns:p="http://openconfig.net/yang/policy-types">p:STATIC</identifier><name>DEFAULT</name>'
           '<static-routes>']
    for i in range(n):
        p = f'10.{i >> 16 & 255}.{i >> 8 & 255}.{i & 255}/32'
        metric = f'<metric>{i % 100}</metric>' if i % 4 == 0 else ''
        out.append(f'<static><prefix>{p}</prefix><config><prefix>{p}</prefix></config><next-hops><next-hop>'
                   f'<index>1</index><config><index>1</index><next-hop>192.0.2.{i % 250 + 1}</next-hop>{metric}'
                   '</config></next-hop></next-hops></static>')
    out.append('</static-routes></protocol></protocols></network-instance></network-instances>')
    return ''.join(out)


def timed(fn):
    t = time.perf_counter()
    fn()
    return time.perf_counter() - t


def rss_mib(pid):
    with open(f'/proc/{pid}/status') as f:
        for line in f:
            if line.startswith('VmRSS:'):
                return int(line.split()[1]) / 1024
    return 0.0


class Server:
    def __init__(self, work):
        with socket.socket() as s:
            s.bind(('127.0.0.1', 0))
            self.port = s.getsockname()[1]
        users = os.path.join(work, 'users')
        with open(users, 'w') as f:
            f.write('bench:' + subprocess.run(['openssl', 'passwd', '-6', 'bench'], capture_output=True,
                                              text=True, check=True).stdout)
        self.log = open(os.path.join(work, 'server.log'), 'w+')
        self.proc = subprocess.Popen([SERVER, '--store', os.path.join(work, 'store'), '--users', users,
                                      '--listen', f'127.0.0.1:{self.port}'], stderr=self.log)
        while 'listening' not in open(self.log.name).read():
            if self.proc.poll() is not None:
                raise RuntimeError(open(self.log.name).read())
            time.sleep(0.05)

    def connect(self):
        return manager.connect(host='127.0.0.1', port=self.port, username='bench', password='bench',
                               hostkey_verify=False, allow_agent=False, look_for_keys=False, timeout=3600)

    def stop(self):
        self.proc.send_signal(signal.SIGTERM)
        self.proc.wait()


def cli(n, doc):
    best_edit = best_get = None
    for _ in range(3):
        with tempfile.TemporaryDirectory() as work:
            path = os.path.join(work, 'routes.xml')
            with open(path, 'w') as f:
                f.write(doc)
            store = os.path.join(work, 'store')
            e = timed(lambda: subprocess.run([MAP, '--store', store, 'edit', path], stdout=subprocess.DEVNULL,
                                             check=True))
            g = timed(lambda: subprocess.run([MAP, '--store', store, 'get', '--format', 'xml'],
                                             stdout=subprocess.DEVNULL, check=True))
        best_edit = min(e, best_edit or e)
        best_get = min(g, best_get or g)
    return best_edit, best_get


def netconf(n, doc):
    best_edit = best_get = None
    idle = None
    for _ in range(3):
        with tempfile.TemporaryDirectory() as work:
            server = Server(work)
            time.sleep(0.5)
            idle = rss_mib(server.proc.pid)
            try:
                with server.connect() as m:
                    e = timed(lambda: m.edit_config(target='running', config=f'<config xmlns="{NC}">{doc}</config>'))
                    reply = []
                    g = timed(lambda: reply.append(m.get_config(source='running')))
                    got = reply[0].data_xml.count('<static>')
                    assert got == n, f'get-config returned {got} routes, not {n}'
            finally:
                peak = rss_mib(server.proc.pid)
                server.stop()
        best_edit = min(e, best_edit or e)
        best_get = min(g, best_get or g)
    return best_edit, best_get, idle, peak


def main():
    print('| N | ocni-map edit | edit-config | ratio | ocni-map get | get-config | ratio | server idle / after |')
    print('|---|---|---|---|---|---|---|---|')
    for n in SIZES:
        doc = document(n)
        ce, cg = cli(n, doc)
        ne, ng, idle, peak = netconf(n, doc)
        print(f'| {n} | {ce:.2f} s | {ne:.2f} s | {ne / ce:.2f}x | {cg:.2f} s | {ng:.2f} s | {ng / cg:.2f}x '
              f'| {idle:.1f} MiB / {peak:.0f} MiB |', flush=True)


if __name__ == '__main__':
    main()
