#!/usr/bin/python3
"""ocni-netconfd driven by a real NETCONF client (ncclient) over SSH on 127.0.0.1.

usage: test_netconfd.py PATH/TO/ocni-netconfd [unittest args]
"""
import os
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest

import paramiko
from lxml import etree
from ncclient import manager
from ncclient.xml_ import to_ele
from ncclient.operations import RPCError
from ncclient.transport.errors import AuthenticationError

SERVER = sys.argv.pop(1) if len(sys.argv) > 1 else 'build/server/ocni-netconfd'
NI = 'http://openconfig.net/yang/network-instance'
NC = 'urn:ietf:params:xml:ns:netconf:base:1.0'
USER, PASSWORD = 'admin', 's3cret pass'


def free_port():
    with socket.socket() as s:
        s.bind(('127.0.0.1', 0))
        return s.getsockname()[1]


class Server:
    """One ocni-netconfd on a fresh store and a free port."""

    def __init__(self):
        self.dir = tempfile.TemporaryDirectory(prefix='ocni-nc-')
        self.port = free_port()
        users = os.path.join(self.dir.name, 'users')
        digest = subprocess.run(['openssl', 'passwd', '-6', '-stdin'], input=PASSWORD, capture_output=True,
                                text=True, check=True).stdout.strip()
        with open(users, 'w') as f:
            f.write(f'# test users\r\n{USER}:{digest}\r\n')  # written on another system
        # A key pair for public-key login; the server knows its public half.
        self.key = os.path.join(self.dir.name, 'id_ecdsa')
        key = paramiko.ECDSAKey.generate()
        key.write_private_key_file(self.key)
        keys = os.path.join(self.dir.name, 'authorized_keys')
        with open(keys, 'w') as f:
            f.write(f'{USER} {key.get_name()} {key.get_base64()}\n')
        self.log = open(os.path.join(self.dir.name, 'server.log'), 'w+')
        self.proc = subprocess.Popen([SERVER, '--store', os.path.join(self.dir.name, 'store'), '--users', users,
                                      '--authorized-keys', keys, '--listen', f'127.0.0.1:{self.port}'],
                                     stderr=self.log)
        for _ in range(200):
            self.log.seek(0)
            if 'listening' in self.log.read():
                return
            if self.proc.poll() is not None:
                break
            time.sleep(0.05)
        self.stop()
        raise RuntimeError('server did not start: ' + self.output())

    def connect(self, user=USER, password=PASSWORD, key=None):
        return manager.connect(host='127.0.0.1', port=self.port, username=user, password=password,
                               key_filename=key, hostkey_verify=False, allow_agent=False, look_for_keys=False,
                               timeout=300)

    def output(self):
        self.log.seek(0)
        return self.log.read()

    def stop(self):
        if self.proc.poll() is None:
            self.proc.send_signal(signal.SIGTERM)
        rc = self.proc.wait(timeout=60)
        self.log.close()
        self.dir.cleanup()
        return rc


def route(prefix, hops=(), leaves=None, op=None, hops_op=None, vrf='default'):
    """XML of one static route; hops are (index, {leaf: value}, op)."""
    def attr(o):
        return f' nc:operation="{o}"' if o else ''
    def leafs(d):  # a value, or (value, operation)
        return ''.join(f'<{k}{attr(v[1])}>{v[0]}</{k}>' if isinstance(v, tuple) else f'<{k}>{v}</{k}>'
                       for k, v in (d or {}).items())
    leaf_xml = leafs(leaves)
    hop_xml = ''.join(f'<next-hop{attr(o)}><index>{i}</index><config><index>{i}</index>{leafs(c)}</config>'
                      '</next-hop>' for i, c, o in hops)
    nh = f'<next-hops{attr(hops_op)}>{hop_xml}</next-hops>' if hops or hops_op else ''
    return (f'<network-instance><name>{vrf}</name><protocols><protocol>'
            f'<identifier xmlns:p="http://openconfig.net/yang/policy-types">p:STATIC</identifier>'
            f'<name>DEFAULT</name><static-routes><static{attr(op)}><prefix>{prefix}</prefix>'
            f'<config><prefix>{prefix}</prefix>{leaf_xml}</config>{nh}</static></static-routes>'
            f'</protocol></protocols></network-instance>')


def config(*routes, wrap_op=None):
    op = f' nc:operation="{wrap_op}"' if wrap_op else ''
    return (f'<config xmlns="{NC}" xmlns:nc="{NC}"><network-instances xmlns="{NI}"{op}>'
            + ''.join(routes) + '</network-instances></config>')


def flatten(reply):
    """The routes of a reply as 'vrf prefix leaf=value' and 'vrf prefix #index leaf=value' lines."""
    root = etree.fromstring(reply.data_xml.encode()) if hasattr(reply, 'data_xml') else reply
    ns = {'n': NI}
    out = set()
    for ni in root.iterfind('.//n:network-instance', ns):
        vrf = ni.findtext('n:name', namespaces=ns)
        for st in ni.iterfind('.//n:static', ns):
            p = st.findtext('n:prefix', namespaces=ns)
            out.add(f'{vrf} {p}')
            for leaf in st.find('n:config', ns):
                out.add(f'{vrf} {p} {etree.QName(leaf).localname}={leaf.text}')
            for hop in st.iterfind('n:next-hops/n:next-hop', ns):
                i = hop.findtext('n:index', namespaces=ns)
                for leaf in hop.find('n:config', ns):
                    out.add(f'{vrf} {p} #{i} {etree.QName(leaf).localname}={leaf.text}')
    return out


def error_of(call):
    try:
        call()
    except RPCError as e:
        return e.tag, e.message or '', e.path or ''
    return None


BASE = route('10.1.0.0/16', [('1', {'next-hop': '192.0.2.1', 'metric': 10}, None),
                             ('2', {'next-hop': '192.0.2.2'}, None)], {'set-tag': 100, 'description': 'east'})


class NetconfServer(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.server = Server()

    @classmethod
    def tearDownClass(cls):
        rc = cls.server.stop()
        assert rc == 0, f'server exit status {rc}'

    def setUp(self):
        self.m = self.server.connect()
        self.m.edit_config(target='running', config=config(), default_operation='replace')

    def tearDown(self):
        self.m.close_session()

    def routes(self, m=None, **filt):
        return flatten((m or self.m).get_config(source='running', **filt))

    def test_hello_offers_the_protocol_and_models(self):
        caps = set(self.m.server_capabilities)
        for want in ['urn:ietf:params:netconf:base:1.0', 'urn:ietf:params:netconf:base:1.1',
                     'urn:ietf:params:netconf:capability:writable-running:1.0',
                     'urn:ietf:params:netconf:capability:validate:1.1',
                     'urn:ietf:params:netconf:capability:xpath:1.0']:
            self.assertIn(want, caps)
        self.assertTrue(any(c.startswith('urn:ietf:params:netconf:capability:with-defaults:1.0?basic-mode=explicit')
                            for c in caps))
        self.assertTrue(any('module=openconfig-network-instance&revision=' in c for c in caps))
        native = 'Velmar-ORN-QZ-ip-static-cfg'
        self.assertIn(f'module {native}', self.m.get_schema(native).data)
        library = self.m.get(filter=('subtree', '<yang-library xmlns="urn:ietf:params:xml:ns:yang:'
                                     'ietf-yang-library"/>')).data_xml
        self.assertIn(f'<name>{native}</name>', library)

    def test_login_needs_the_password_or_the_key(self):
        with self.server.connect(USER, None, self.server.key) as m:
            self.assertTrue(m.connected)
        for user, password, key in [(USER, 'wrong', None), ('nobody', PASSWORD, None), (USER, '', None),
                                    ('nobody', None, self.server.key)]:
            with self.subTest(user=user, password=password, key=key):
                with self.assertRaises(AuthenticationError):
                    self.server.connect(user, password, key)

    def test_edit_errors_name_tag_and_place(self):
        bad_type = config(route('10.2.0.0/16', leaves={'set-tag': 'many'}))
        cases = [
            ('unknown leaf', config(route('10.2.0.0/16', leaves={'colour': 'red'})), 'unknown-element', 'colour'),
            ('value out of type', bad_type, 'invalid-value', 'set-tag'),
            ('list entry without its key', config('<network-instance><protocols/></network-instance>'),
             'missing-element', 'name'),
            ('prefix not canonical', config(route('10.2.0.1/16')), 'invalid-value', '10.2.0.0/16'),
            ('state data', config(route('10.2.0.0/16').replace('</config>', '</config><state><prefix>10.2.0.0/16'
                                                               '</prefix></state>')), 'invalid-value', 'state'),
            ('mapping refusal', config(route('10.2.0.0/16', [('1', {'next-hop': '192.0.2.1'}, None)],
                                             {'description': 'to (core)'})), 'operation-failed', 'description'),
            ('create of a stored route', config(route('10.1.0.0/16', op='create')), 'data-exists', "10.1.0.0/16"),
            ('delete of an absent route', config(route('10.9.0.0/16', op='delete')), 'data-missing', '10.9.0.0/16'),
            ('delete of an absent next hop', config(route('10.1.0.0/16', [('7', {}, 'delete')])), 'data-missing',
             "'7'"),
            ('delete of an absent leaf', config(route('10.1.0.0/16', [('2', {'metric': (5, 'delete')}, None)])),
             'data-missing', 'metric'),
            ('remove of an absent leaf', config(route('10.1.0.0/16', [('2', {'metric': (5, 'remove')}, None)])),
             None, None),
            ('remove of an absent route', config(route('10.9.0.0/16', op='remove')), None, None),
        ]
        for name, cfg, tag, where in cases:
            with self.subTest(name):
                self.m.edit_config(target='running', config=config(BASE), default_operation='replace')
                before = self.routes()
                err = error_of(lambda: self.m.edit_config(target='running', config=cfg))
                if tag is None:
                    self.assertIsNone(err)
                    continue
                self.assertIsNotNone(err)
                self.assertEqual(err[0], tag, err)
                self.assertIn(where, err[1] + err[2])
                self.assertEqual(self.routes(), before)

    def test_operations_change_exactly_what_they_name(self):
        hop3 = ('3', {'next-hop': '192.0.2.3'}, None)
        cases = [
            ('merge adds a next hop', config(route('10.1.0.0/16', [hop3])), {}, ['+#3 next-hop=192.0.2.3',
                                                                              '+#3 index=3']),
            ('replace of a route drops what it leaves out',
             config(route('10.1.0.0/16', [hop3], op='replace')), {},
             ['+#3 next-hop=192.0.2.3', '+#3 index=3', '-#1', '-#2', '-set-tag=100', '-description=east']),
            ('replace of next hops keeps route leaves',
             config(route('10.1.0.0/16', [('1', {'next-hop': '192.0.2.1'}, None)], hops_op='replace')), {},
             ['-#2', '-#1 metric=10']),
            ('replace moves a next hop to a new index',
             config(route('10.1.0.0/16', [('3', {'next-hop': '192.0.2.1'}, None)], op='replace')), {},
             ['-#1', '-#2', '-set-tag=100', '-description=east', '+#3 next-hop=192.0.2.1', '+#3 index=3']),
            ('replace of next hops changes an address and drops a metric',
             config(route('10.1.0.0/16', [('1', {'next-hop': '192.0.2.9'}, None)], hops_op='replace')), {},
             ['-#2', '-#1 metric=10', '-#1 next-hop=192.0.2.1', '+#1 next-hop=192.0.2.9']),
            ('delete of a leaf', config(route('10.1.0.0/16', leaves={'set-tag': (100, 'delete')})), {},
             ['-set-tag=100']),
            ('delete of a next hop', config(route('10.1.0.0/16', [('2', {}, 'delete')])), {}, ['-#2']),
            ('delete of a leaf beside its unchanged address',
             config(route('10.1.0.0/16', [('1', {'next-hop': '192.0.2.1', 'metric': (10, 'delete')}, None)])), {},
             ['-#1 metric=10']),
            ('create of a new route', config(route('10.3.0.0/16', [hop3], op='create')), {},
             ['+10.3.0.0/16', '+10.3.0.0/16 prefix=10.3.0.0/16', '+10.3.0.0/16 #3 next-hop=192.0.2.3',
              '+10.3.0.0/16 #3 index=3']),
            ('default replace removes other routes', config(route('10.3.0.0/16', [hop3])),
             {'default_operation': 'replace'},
             ['-*', '+10.3.0.0/16', '+10.3.0.0/16 prefix=10.3.0.0/16', '+10.3.0.0/16 #3 next-hop=192.0.2.3',
              '+10.3.0.0/16 #3 index=3']),
            ('default none changes only named operations',
             config(route('10.1.0.0/16', [('1', {'metric': 99}, None), ('2', {}, 'delete')],
                          {'description': 'west'})), {'default_operation': 'none'}, ['-#2']),
        ]
        for name, cfg, kwargs, change in cases:
            with self.subTest(name):
                self.m.edit_config(target='running', config=config(BASE), default_operation='replace')
                before = self.routes()
                for option, changed in [('test-only', []), ('test-then-set', change)]:  # test-only changes nothing
                    self.m.edit_config(target='running', config=cfg, test_option=option, **kwargs)
                    self.assertEqual(self.routes(), expect(before, changed), option)

    def test_failed_edit_of_several_steps_changes_nothing(self):
        self.m.edit_config(target='running', config=config(BASE), default_operation='replace')
        refused = route('10.4.0.0/16', [('1', {'next-hop': '192.0.2.1'}, None)], {'description': 'to (core)'})
        cfg = config(route('10.1.0.0/16', [('2', {}, 'delete')]), refused)
        calls = {'test-then-set': lambda: self.m.edit_config(target='running', config=cfg),
                 'test-only': lambda: self.m.edit_config(target='running', config=cfg, test_option='test-only'),
                 'validate': lambda: self.m.validate(source=to_ele(cfg)),
                 'replace': lambda: self.m.edit_config(target='running', config=config(refused),
                                                       default_operation='replace'),
                 'next hops replaced, then refused': lambda: self.m.edit_config(target='running', config=config(
                     route('10.1.0.0/16', [('1', {'next-hop': '192.0.2.1'}, None)], {'description': 'to (core)'},
                           hops_op='replace')))}
        with self.server.connect() as other:
            before = self.routes(other)
            for name, call in calls.items():
                with self.subTest(name):
                    err = error_of(call)
                    self.assertEqual(err[0], 'operation-failed')
                    self.assertIn('description', err[1])
                    self.assertEqual(self.routes(other), before)

    def test_filters_select_vrfs_and_routes(self):
        self.m.edit_config(target='running', config=config(
            BASE, route('10.5.0.0/16', [('1', {'next-hop': '192.0.2.5'}, None)]),
            route('10.6.0.0/16', [('1', {'next-hop': '192.0.2.6'}, None)], vrf='red').replace(
                '<name>red</name>', '<name>red</name><config><name>red</name></config>', 1)))
        ni = f'<network-instances xmlns="{NI}"><network-instance><name>%s</name>%s</network-instance>' \
             '</network-instances>'
        static = '<protocols><protocol><static-routes><static><prefix>%s</prefix></static></static-routes>' \
                 '</protocol></protocols>'
        xp = '/ni:network-instances/ni:network-instance[ni:name="%s"]'
        cases = [
            ('subtree by vrf', ('subtree', ni % ('red', '')), {'red 10.6.0.0/16'}),
            ('subtree by route', ('subtree', ni % ('default', static % '10.5.0.0/16')), {'default 10.5.0.0/16'}),
            ('subtree of nothing stored', ('subtree', ni % ('blue', '')), set()),
            ('xpath by vrf', ('xpath', ({'ni': NI}, xp % 'red')), {'red 10.6.0.0/16'}),
            ('xpath by route', ('xpath', ({'ni': NI}, xp % 'default' + '//ni:static[ni:prefix="10.1.0.0/16"]')),
             {'default 10.1.0.0/16'}),
        ]
        for name, filt, routes in cases:
            with self.subTest(name):
                got = {line for line in self.routes(filter=filt) if ' ' not in line.split(' ', 2)[-1]
                       and line.count(' ') == 1}
                self.assertEqual(got, routes)
        state = self.m.get(filter=('subtree', ni % ('default', static % '10.1.0.0/16'))).data_xml
        self.assertIn('<state>', state)
        self.assertNotIn('10.5.0.0/16', state)

    def test_lock_refuses_others_until_released(self):
        other = self.server.connect()
        try:
            self.m.lock(target='running')
            err = error_of(lambda: other.edit_config(target='running', config=config(BASE)))
            self.assertEqual(err[0], 'lock-denied')
            self.assertIn(str(self.m.session_id), err[1])
            self.assertEqual(error_of(lambda: other.lock(target='running'))[0], 'lock-denied')
            self.assertEqual(error_of(lambda: other.unlock(target='running'))[0], 'lock-denied')
            self.m.edit_config(target='running', config=config(BASE))
            self.m.unlock(target='running')
            other.edit_config(target='running', config=config(BASE))
            # A lock dies with its session: closed, or killed by another.
            for end in ['close', 'kill']:
                holder = self.server.connect()
                holder.lock(target='running')
                if end == 'close':
                    holder.close_session()
                else:
                    other.kill_session(holder.session_id)
                for _ in range(50):
                    if error_of(lambda: other.lock(target='running')) is None:
                        break
                    time.sleep(0.1)
                other.unlock(target='running')
        finally:
            other.close_session()

    def test_concurrent_sessions_lose_no_next_hop(self):
        self.m.edit_config(target='running', config=config(BASE), default_operation='replace')
        failures = []

        def add(worker):
            try:
                with self.server.connect() as m:
                    for k in range(10):
                        i = f'w{worker}-{k}'
                        m.edit_config(target='running', config=config(route(
                            '10.1.0.0/16', [(i, {'next-hop': f'198.51.100.{worker * 10 + k + 1}'}, None)])))
            except Exception as e:  # noqa: BLE001 - reported below
                failures.append(repr(e))
        threads = [threading.Thread(target=add, args=(w,)) for w in range(4)]
        for t in threads:
            t.start()
        for t in threads:
            t.join()
        self.assertEqual(failures, [])
        hops = {line.split()[2] for line in self.routes() if '#w' in line}
        self.assertEqual(len(hops), 40)


class CommandLine(unittest.TestCase):
    def test_options_are_checked_before_serving(self):
        with tempfile.TemporaryDirectory() as d:
            users, bad = os.path.join(d, 'users'), os.path.join(d, 'bad')
            with open(users, 'w') as f:
                f.write('a:$6$salt$hash\n')
            with open(bad, 'w') as f:
                f.write('a:plain\n')
            port = free_port()
            rows = [
                (['--help'], 0, 'usage: ocni-netconfd'),
                (['-h'], 0, '--authorized-keys FILE'),
                (['--store', d], 2, 'nobody could log in'),
                (['--users', users, '--listen', '127.0.0.1'], 2, '--listen needs ADDR:PORT'),
                (['--users', users, '--listen', '127.0.0.1:'], 2, '--listen needs ADDR:PORT'),
                (['--users', users, '--max-sessions', '0'], 2, 'positive number'),
                (['--users', users, '--colour'], 2, 'unknown option --colour'),
                (['--users', bad], 1, 'bad:1: expected name:hash'),
                (['--users', users, '--store', d, '--listen', f'[::1]:{port}'], 0, f'listening on ::1:{port}'),
            ]
            for args, status, mention in rows:
                with self.subTest(args=args):
                    p = subprocess.Popen([SERVER] + args, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
                    if 'listening' in mention:
                        line = p.stderr.readline()
                        p.send_signal(signal.SIGTERM)
                        out, err = p.communicate(timeout=60)
                        err = line + err
                    else:
                        out, err = p.communicate(timeout=60)
                    self.assertEqual(p.returncode, status, err)
                    self.assertIn(mention, out + err)


def expect(before, change):
    """`before` with the change applied: '+x'/'-x' add or drop 'default 10.1.0.0/16 x' (full line when it names
    a prefix); '-#1' drops next hop 1 whole; '-*' drops everything."""
    out = set(before)
    for c in change:
        sign, what = c[0], c[1:]
        if what == '*':
            out.clear()
            continue
        line = f'default {what}' if what[0].isdigit() else f'default 10.1.0.0/16 {what}'
        if sign == '+':
            out.add(line)
        elif ' ' not in what and what.startswith('#'):
            out = {x for x in out if not x.startswith(line + ' ')}
        else:
            out.discard(line)
    return out


if __name__ == '__main__':
    unittest.main(verbosity=2)
