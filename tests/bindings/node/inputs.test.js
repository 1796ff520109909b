// Inputs that are refused before the library sees them, codes, a maker's file, and languages.
'use strict';
const assert = require('assert/strict');
const fs = require('fs');
const os = require('os');
const path = require('path');
const {beforeEach, test} = require('node:test');
const {CertType, Codes, bundle, failureOf, kesta, refresh, requestInfo, speak, splitList, standIn} =
    require('./support');

const {library} = standIn;
const {limits} = require(path.join(process.env.KESTA_NODE_PACKAGE, 'lib/codes.js'));
const cases = JSON.parse(fs.readFileSync(process.env.KESTA_INPUTS, 'utf8'));
beforeEach(refresh);

const textOf = ({header, before = '', repeat, behind = ''}) =>
    (header ? limits.keyHeader : '') + before + 'A'.repeat(repeat) + behind;

async function judge({refused}, operate) {
    standIn.reset();
    if (refused) {
        assert.equal((await failureOf(operate())).kind, 'bad-argument');
        assert.deepEqual(standIn.calls, []);
    } else {
        await operate();
        assert.notDeepEqual(standIn.calls, []);
    }
}

test('key texts', async () => {
    for (const one of cases.keyText) {
        await judge(one, () => library.importEncX509Cert('SN', 'c', textOf(one)));
    }
});

test('bundles', async () => {
    for (const one of cases.bundle) {
        await judge(one, () => library.batchImportX509Cert('SN', textOf(one)));
    }
});

test('request information', async () => {
    for (const one of cases.requestInfo) {
        await judge(one, () => library.generateCertRequest('SN', one.text));
        await judge(one, () => library.batchInitAndGenerateCertRequest('SN', 0, one.text));
    }
});

test('lists', async () => {
    for (const one of cases.list) await judge(one, () => library.key('SN').batchSign(one.texts));
});

test('bundles and request information are written', () => {
    assert.equal(bundle({signingCertificates: ['S'], encryptionKeys: ['K'],
        encryptionCertificates: ['E']}), 'SignCert(S)|EncCert(E)|EncPriKey(K)');
    assert.equal(requestInfo([{certType: 1}, {certType: 3, keyType: 2, hashType: 3}]),
        'CertType(1)KeyType(2)HashType(3)|CertType(3)KeyType(2)HashType(3)');
    assert.deepEqual(splitList('||a||b'), ['a', 'b']);
    assert.throws(() => bundle({signingCertificates: ['a)']}), {kind: 'bad-argument'});
    assert.throws(() => requestInfo([{certType: 10}]), {kind: 'bad-argument'});
});

test('keys hand their serial number on', async () => {
    const key = library.key('SN');
    standIn.tell({text: 'x'});
    const says = async (promise, call) => {
        await promise;
        assert.equal(standIn.calls.at(-1), call);
    };
    await says(key.batchSign(['a', 'b', 'c'], 'warning'),
        'Batch_Sign 1 pointer 2 0 a pointer NULL 0 0 b||c 2 12306');
    await says(key.sign('data', 'warning', {hashType: 3}), 'Sign SN 2 3 data warning');
    await says(key.getCertDn(CertType.signing, 7), 'GetCertDN SN 1 7');
    await says(key.asymDec('cipher'), 'AsymDec SN 3 2 cipher');
    await says(key.setCharset('UTF-8'), 'SetCharset UTF-8 SN');
    await says(key.testInitUkey(), 'TestInitUKey SN NULL');
});

const kindOf = async (code) => {
    standIn.tell({code});
    return (await failureOf(library.verifyPin('SN'))).kind;
};

test('library codes are fixed and the software key\'s known', async () => {
    assert.equal(await kindOf(-101), 'not-loaded');
    assert.equal(await kindOf(0x5B11), 'no-key');
    assert.equal(await kindOf(0x5B32), 'timeout');
    assert.equal(await kindOf(0x1234), 'unknown');
});

const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'codes-'));
const written = (contents) => {
    const file = path.join(folder, 'codes.json');
    fs.writeFileSync(file, JSON.stringify(contents));
    return file;
};

test('a maker\'s file is read', async () => {
    Codes.read(written({
        codes: [{first: -2199, last: -2100, kind: 'failed'}, {code: -2104, kind: 'pin-locked'},
            {code: '0x80100069', kind: 'removed'}, {code: -101, kind: 'full'}],
        pinRecord: {length: 4, triesLeft: 2, triesMost: 1, locked: 0},
    })).use();
    assert.equal(await kindOf(-2100), 'failed');
    assert.equal(await kindOf(-2104), 'pin-locked');
    assert.equal(await kindOf(0x80100069 | 0), 'removed');
    assert.equal(await kindOf(0x5B21), 'unknown');
    assert.equal(await kindOf(-101), 'not-loaded');
    standIn.tell({code: 0, text: Buffer.from([0, 8, 5, 0]), reported: 4});
    assert.deepEqual(await library.key('SN').pinTries(), {left: 5, most: 8, locked: false});
});

test('the example file is the software key\'s table', () => {
    assert.deepEqual(Codes.read(process.env.KESTA_CODES), Codes.softkey());
});

test('what is no such file is refused with a reason', () => {
    for (const wrong of [[], {code: []}, {codes: [{code: 1, kind: 'broken'}]}, {codes: [{code: 1}]},
        {codes: [{first: 2, last: 1, kind: 'failed'}]}, {codes: [{code: 'x', kind: 'failed'}]},
        {codes: [{code: 2 ** 32, kind: 'failed'}]}, {codes: [{code: true, kind: 'failed'}]},
        {codes: [], pinRecord: {length: 8}}, {codes: [], pinRecord: [8, 0, 1, 2]}]) {
        assert.throws(() => Codes.read(written(wrong)), {name: 'RangeError', message: /codes\.json/});
    }
});

test('tries are not told of a record that cannot be one', async () => {
    const record = [4, 6, 0, 0, 0, 6, 16, 0];
    const told = async (change) => {
        standIn.tell({text: Buffer.from(Object.assign([...record], change)), reported: 8});
        return library.key('SN').pinTries();
    };
    assert.deepEqual(await told({}), {left: 4, most: 6, locked: false});
    assert.deepEqual(await told({0: 0, 2: 1}), {left: 0, most: 6, locked: true});
    for (const change of [{0: 7}, {2: 2}, {2: 1}, {0: 0}]) {
        assert.equal(await told(change), undefined);
    }
});

test('sentences are given in Chinese too', async () => {
    speak('zh');
    standIn.tell({code: -101});
    assert.equal((await failureOf(library.verifyPin('SN'))).message, '令牌库缺失或不完整');
    assert.throws(() => kesta.speak('fr'), RangeError);
});
