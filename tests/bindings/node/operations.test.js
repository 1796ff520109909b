// What each operation hands to the library: driven by the description of the header.
'use strict';
const assert = require('assert/strict');
const {beforeEach, test} = require('node:test');
const {Library, description, extremes, failureOf, operations, refresh, standIn} =
    require('./support');

const {library} = standIn;
beforeEach(refresh);

// What the stand-in has no record of, or does not do by a plain call.
const unrecorded = ['GetLastErrCode', 'RegisterCert', 'UnregisterCert', 'RepairDriver',
    'WaitForKeyEvent', 'StopDetectUKey'];
const forwarded = description.filter(({name}) => !unrecorded.includes(name));

// The language's own style, written out once for those whose words are not plain.
const names = {
    GetCertDN: 'getCertDn', InitUKey: 'initUkey', TestInitUKey: 'testInitUkey',
    Batch_ImportX509Cert: 'batchImportX509Cert', ImportEncX509Cert: 'importEncX509Cert',
    VerifyPIN: 'verifyPin', StopDetectUKey: 'stopDetectUkey', GetVidAndPid: 'getVidAndPid',
    Batch_InitAndGenerateCertRequest: 'batchInitAndGenerateCertRequest', Batch_Sign: 'batchSign',
};
const nameOf = (name) => names[name] || name[0].toLowerCase() + name.slice(1);

test('every function has an operation, on and off the main thread', () => {
    assert.deepEqual(description.map(({name}) => name), Object.keys(operations));
    for (const {name} of description) {
        assert.equal(operations[name].operation, nameOf(name));
        assert.equal(typeof library[nameOf(name)], 'function', name);
        if (name !== 'WaitForKeyEvent') assert.equal(typeof library.sync[nameOf(name)], 'function');
    }
});

for (const entry of forwarded) {
    test(`${entry.name} hands its arguments on in the order of C`, async () => {
        const {values, words} = extremes(entry);
        for (const form of [library, library.sync]) {
            standIn.reset();
            standIn.tell({text: 'x'});
            await form[nameOf(entry.name)](...values);
            const call = standIn.calls.at(-1).split(' ');
            assert.deepEqual(call.slice(0, words.length + 1), [entry.name, ...words]);
        }
    });

    test(`${entry.name} refuses arguments that do not fit before the call`, async () => {
        const {values} = extremes(entry);
        for (const [place, value] of values.entries()) {
            if (Buffer.isBuffer(value)) continue;
            const wrong = [...values];
            wrong[place] = typeof value === 'string' ? 'a\0b' : value < 0 ? value - 1 : value + 1;
            const refused = await failureOf(library[nameOf(entry.name)](...wrong));
            assert.deepEqual([refused.kind, refused.operation], ['bad-argument', entry.name]);
            assert.throws(() => library.sync[nameOf(entry.name)](...wrong), {kind: 'bad-argument'});
            for (const other of [typeof value === 'string' ? 5 : '5', 1.5, {}, true]) {
                wrong[place] = other;
                await assert.rejects(library[nameOf(entry.name)](...wrong), TypeError);
            }
        }
        assert.ok(!standIn.calls.some((call) => call.startsWith(entry.name)));
    });
}

test('a missing library is not loaded', () => {
    assert.throws(() => Library.load('/nowhere/libkesta.so'),
        {kind: 'not-loaded', message: /\/nowhere\/libkesta\.so/});
    assert.throws(() => Library.load('libc.so.6'), {kind: 'not-loaded', message: /Initialize/});
    assert.throws(() => Library.load(), {kind: 'not-loaded', message: /libkesta_unified_zrkukey\.so/});
});

test('operations that initialise nothing are initialised first', async () => {
    await library.initUkey('SN');
    await library.setCachePinFlag('SN', 1);
    assert.deepEqual(standIn.calls, ['Initialize', 'InitUKey SN', 'SetCachePinFlag SN 1']);
});

test('a failure tells code, kind, operation and message', async () => {
    standIn.tell({code: 0x5B21, message: 'the PIN is wrong'});
    const error = await failureOf(library.verifyPin('SN'));
    assert.deepEqual([error.code, error.kind, error.operation, error.message],
        [0x5B21, 'pin-wrong', 'VerifyPIN', 'the PIN is wrong']);
    assert.equal(String(error), 'VerifyPIN: the PIN is wrong (0x00005B21)');
    assert.equal(await library.getLastErrCode(), 0x5B21);
    assert.throws(() => library.sync.verifyPin('SN'), {kind: 'pin-wrong'});
});

test('negative codes of a token library stay negative', async () => {
    standIn.tell({code: -2000000000});
    assert.equal((await failureOf(library.verifyPin('SN'))).code, -2000000000);
    assert.equal(await library.getLastErrCode(), -2000000000);
});

test('texts of another charset are decoded', async () => {
    library.encoding = 'gb18030';
    try {
        standIn.tell({text: Buffer.from([0xd7, 0xaa, 0xd5, 0xcb])});
        assert.equal(await library.getLabel('SN'), '转账');
    } finally {
        library.encoding = 'utf-8';
    }
    await library.setLabel('SN', '转账');
    assert.equal(standIn.calls.at(-1), 'SetLabel SN 转账');
});
