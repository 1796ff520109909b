// Enrolment, signature, decryption and events against the software key, and all that goes wrong.
'use strict';
const assert = require('assert/strict');
const fs = require('fs');
const os = require('os');
const path = require('path');
const {afterEach, beforeEach, test} = require('node:test');
const {CertType, KestaError, Library, authority, build, bundle, description, eventually, extremes,
    failureOf, operations, pause, softkey} = require('./support');

const library = Library.load(path.join(build, 'lib/libkesta_unified_zrkukey.so'));
const LOG = '/tmp/ValtoPinpad_KESTA.log';
const groups = [{certType: CertType.signing}, {certType: CertType.encryption}];
let key;
let folder;

// The token library reads the environment of the process, which Node's process.env writes through to.
beforeEach(async () => {
    folder = fs.mkdtempSync(path.join(os.tmpdir(), 'key-'));
    process.env.KESTA_SOFTKEY_HOME = path.join(folder, 'home');
    process.env.KESTA_SOFTKEY_PIN = '135790';
    softkey('create', '--serial', 'SK0001', '--media-id', 'MEDIA-1');
    await library.setLanguage('en_US', '');
    key = await library.presentKey();
});

afterEach(async () => {
    await key.close();
    await library.finalize();
});

/** An authority that has enrolled the key. */
async function enrolled() {
    const ca = authority(path.join(folder, 'authority'));
    const [signing, encryption] = await key.generateCertRequest(groups);
    const [certificate, envelope] = ca.escrow(encryption);
    await key.batchImportX509Cert(bundle({signingCertificates: [ca.issue(signing)],
        encryptionKeys: [envelope], encryptionCertificates: [certificate]}));
    return ca;
}

const plan = (...rules) => softkey('misbehave', '-', {rules});

test('enrolment, signature and decryption', async () => {
    const ca = await enrolled();
    const certificate = await key.getCert(CertType.signing);
    assert.match(await key.getCertDn(CertType.signing), /CN/);
    assert.match(String(await key.getCertInfo(CertType.signing)), /algorithm=SM2/);
    const signature = await key.sign('转账 12.50', 'Pay 12.50?');
    assert.ok(ca.verifies(certificate, '转账 12.50', signature));
    assert.ok(!ca.verifies(certificate, '转账 12.51', signature));
    const batch = await key.batchSign(['a', 'b', 'c'], 'Sign three?');
    assert.deepEqual(['a', 'b', 'd'].map((text, at) => ca.verifies(certificate, text, batch[at])),
        [true, true, false]);
    const cipher = ca.encrypt(await key.getCert(CertType.encryption), 'a letter, 信');
    assert.equal(await key.asymDec(cipher), 'a letter, 信');
});

test('installation one by one', async () => {
    const ca = authority(path.join(folder, 'authority'));
    const [signing, encryption] = await key.generateCertRequest(groups);
    await key.importX509Cert(ca.issue(signing));
    const [certificate, envelope] = ca.escrow(encryption);
    await key.importEncX509Cert(certificate, envelope);
    assert.equal(await key.getCert(CertType.encryption), certificate);
    await key.delCertAndTempKey(CertType.encryption);
    assert.equal((await failureOf(key.getCert(CertType.encryption))).kind, 'not-found');
});

test('label, data and versions', async () => {
    await key.setLabel('二楼 accounts');
    assert.equal(await key.getLabel(), '二楼 accounts');
    await library.setData('branch-code', 2, '0417');
    assert.equal(await library.getData('branch-code', 2), '0417');
    assert.equal(await library.getDllVersion(), '9.2025.0731.3');
    assert.equal(await library.getVidAndPid(), '2E5A&0301');
    await library.checkDriverIntegrity(1);
});

test('the PIN is wrong, locked and cancelled', async () => {
    process.env.KESTA_SOFTKEY_PIN = '000000';
    for (const left of [5, 4, 3, 2, 1]) {
        assert.equal((await failureOf(key.verifyPin())).kind, 'pin-wrong');
        assert.deepEqual(await key.pinTries(), {left, most: 6, locked: false});
    }
    await failureOf(key.verifyPin());
    assert.deepEqual(await key.pinTries(), {left: 0, most: 6, locked: true});
    const locked = await failureOf(key.verifyPin());
    assert.deepEqual([locked.kind, locked.message], ['pin-locked', 'the PIN is locked']);
    process.env.KESTA_SOFTKEY_PIN = '135790';
    softkey('unlock');
    await key.verifyPin();
    delete process.env.KESTA_SOFTKEY_PIN;
    const paths = process.env.PATH;
    process.env.PATH = '/nowhere';
    const cancelled = await failureOf(key.changePin());
    process.env.PATH = paths;
    assert.equal(cancelled.kind, 'cancelled');
});

test('the button is refused or not pressed in time', async () => {
    await enrolled();
    softkey('button', 'refuse');
    assert.equal((await failureOf(key.sign('a', 'b'))).kind, 'refused');
    softkey('button', 'ask');
    process.env.KESTA_SOFTKEY_BUTTON_MS = '50';
    assert.equal((await failureOf(key.sign('a', 'b'))).kind, 'timeout');
    delete process.env.KESTA_SOFTKEY_BUTTON_MS;
});

test('the event loop goes on while the button is asked', async () => {
    await enrolled();
    softkey('button', 'ask');
    let signature;
    const signing = key.sign('a', 'Button?').then((text) => { signature = text; });
    await eventually(() => softkey('screen').includes('Button?'));
    assert.equal(await library.getDllVersion(), '9.2025.0731.3');
    const gaps = [];
    for (let round = 0; round < 10 && !gaps.some((gap) => gap < 50); ++round) {
        let longest = 0;
        for (let last = performance.now(), end = last + 500; last < end;) {
            await pause(1);
            longest = Math.max(longest, performance.now() - last);
            last = performance.now();
        }
        gaps.push(longest);
    }
    assert.ok(gaps.some((gap) => gap < 50), `gaps of ${gaps} ms`);
    assert.equal(signature, undefined);
    softkey('button', 'press');
    await signing;
    assert.ok(signature);
});

test('a key that is pulled out is told as such', async () => {
    await enrolled();
    plan({entry: 'GMUsbKeyCommonSign', call: 1, remove: 'during'});
    assert.equal((await failureOf(key.signHash('00'.repeat(32)))).kind, 'removed');
    assert.equal((await failureOf(key.getLabel())).kind, 'no-key');
    softkey('insert');
    assert.ok(await key.getLabel());
});

test('lengths that lie are survived', async () => {
    const ca = await enrolled();
    const cipher = ca.encrypt(await key.getCert(CertType.encryption), 'a letter');
    const uses = [() => key.getCert(CertType.signing), () => key.sign('a', 'b'),
        () => key.signHash('00'.repeat(32)), () => key.asymDec(cipher),
        () => key.batchSign(['a'], 'w'), () => key.pinTries(),
        () => key.getCertInfo(CertType.signing)];
    for (const entry of ['GetCertInfo', 'GMUsbKeyCriticalSign', 'GMUsbKeyCommonSign',
        'GMUSBKeyAsymDec2', 'Batch_Sign', 'GetPinInfo', 'GetCertInfo_UOS']) {
        for (const length of [0, 1, 5000, 70000, 2147483647, 4294967295]) {
            plan({entry, length});
            for (const use of uses) {
                await use().catch((error) => assert.ok(error instanceof KestaError, error.stack));
            }
        }
    }
    softkey('misbehave', '--clear');
    assert.equal(await key.asymDec(cipher), 'a letter');
});

test('every operation survives a key that fails everywhere', async () => {
    plan(...['CheckDeviceEx', 'GetLabel', 'SetLabel', 'GetCertInfo', 'GMUsbKeyCriticalSign',
        'VerifyPIN', 'GMCreatePKCS10', 'GetPinInfo', 'SetData', 'GetData', 'ChangePin',
        'CustInitCard'].map((entry) => ({entry, code: 'KeyRemoved'})));
    for (const entry of description) {
        // The one waits; the other takes pointers whose meaning is the token's.
        if (['WaitForKeyEvent', 'Batch_Sign'].includes(entry.name)) continue;
        const values = extremes(entry).values.map((value) => value === 'a0' ? 'SK0001' : value);
        await library[operations[entry.name].operation](...values)
            .catch((error) => assert.ok(error instanceof KestaError, error.stack));
    }
    softkey('misbehave', '--clear');
    assert.ok(await key.getLabel());
});

test('events of the software key', async () => {
    const waiting = library.events();
    // An event is seen by who waits already; the log tells when that is.
    await eventually(() => fs.existsSync(LOG) && fs.readFileSync(LOG, 'latin1').includes('[after]'));
    const seen = [];
    for (const command of ['remove', 'insert']) {
        softkey(command);
        const {value} = await waiting.next();
        seen.push(`${value.kind} ${value.mediaId}`);
    }
    await waiting.return();
    assert.deepEqual(seen, ['removal MEDIA-1', 'arrival MEDIA-1']);
});
