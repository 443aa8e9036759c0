#!/usr/bin/python3
"""Adds 10.20.0.0/16 via 192.0.2.1 to the default VRF and reads it back: add-route.py PORT USER PASSWORD"""
import sys
from ncclient import manager
NI = '<network-instances xmlns="http://openconfig.net/yang/network-instance"><network-instance><name>default</name>'
ROUTE = ('<protocols><protocol><identifier xmlns:p="http://openconfig.net/yang/policy-types">p:STATIC</identifier>'
         '<name>DEFAULT</name><static-routes><static><prefix>10.20.0.0/16</prefix>%s</static></static-routes>'
         '</protocol></protocols></network-instance></network-instances>')
HOP = '<next-hops><next-hop><index>1</index><config><index>1</index><next-hop>192.0.2.1</next-hop></config></next-hop></next-hops>'
with manager.connect(host='127.0.0.1', port=int(sys.argv[1]), username=sys.argv[2], password=sys.argv[3],
                     hostkey_verify=False, allow_agent=False, look_for_keys=False) as m:
    m.edit_config(target='running', config='<config xmlns="urn:ietf:params:xml:ns:netconf:base:1.0">'
                  + NI + ROUTE % HOP + '</config>')
    print(m.get_config(source='running', filter=('subtree', NI + ROUTE % '')).data_xml)
