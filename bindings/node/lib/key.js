// One key, bound to its serial number.
'use strict';
const {CODES, Codes, failure, say} = require('./codes');
const {CertType, HashForm, HashType, KeyType, joinList, requestInfo, splitList} = require('./texts');

class Key {
    constructor(library, serial) {
        this.library = library;
        this.serial = serial;
    }

    /** Forgets the PIN, which the token library does for all keys of the process. */
    async close() {
        // A key that was pulled out has forgotten by itself.
        await this.library.removePinCache().catch(() => {});
    }

    // ---- PIN and initialisation

    changePin(options) {
        return this.library.changePin(this.serial, options);
    }
    initUkey(options) {
        return this.library.initUkey(this.serial, options);
    }
    testInitUkey(param, options) {
        return this.library.testInitUkey(this.serial, param, options);
    }
    verifyPin(options) {
        return this.library.verifyPin(this.serial, options);
    }
    testVerifyAndCachePin(param, options) {
        return this.library.testVerifyAndCachePin(this.serial, param, options);
    }
    getPinInfo(options) {
        return this.library.getPinInfo(this.serial, options);
    }
    /** The tries left {left, most, locked}; undefined where the layout of the record is not known. */
    async pinTries(options) {
        return Codes.inUse().tries(await this.getPinInfo(options));
    }
    setCachePinFlag(caching, options) {
        return this.library.setCachePinFlag(this.serial, caching ? 1 : 0, options);
    }

    // ---- Certificates

    getCert(certType, keyType = KeyType.sm2, options = undefined) {
        return this.library.getCert(this.serial, certType, keyType, options);
    }
    getCertDn(certType, keyType = KeyType.sm2, options = undefined) {
        return this.library.getCertDn(this.serial, certType, keyType, options);
    }
    getCertInfo(certType, options) {
        return this.library.getCertInfo(this.serial, certType, options);
    }
    delCertAndTempKey(certType, keyType = KeyType.sm2, options = undefined) {
        return this.library.delCertAndTempKey(this.serial, certType, keyType, options);
    }

    // ---- Signing and decryption

    /** choices: keyType, hashType, signal. */
    sign(data, warning, {keyType = KeyType.sm2, hashType = HashType.usual, signal} = {}) {
        return this.library.sign(this.serial, keyType, hashType, data, warning, {signal});
    }
    /** choices: keyType, hashType, form, signal. */
    signHash(digest, choices = {}) {
        const {keyType = KeyType.sm2, hashType = HashType.usual, form = HashForm.any, signal} = choices;
        return this.library.signHash(this.serial, keyType, hashType, digest, form, {signal});
    }
    /** With a warning the key shows it once, and one press of its button stands for all texts; without
     * one the key does not ask. choices: keyType, hashType, moreFlags (a maker's own), signal. */
    async batchSign(texts, warning = '', choices = {}) {
        const {keyType = KeyType.sm2, hashType = HashType.usual, moreFlags = 0, signal} = choices;
        if (!texts.length) throw failure(CODES.badArgument, 'Batch_Sign', say('EmptyBatch'));
        // The call wants the first text beside the list.
        const listed = joinList(texts.slice(1)) || null;
        return splitList(await this.library.batchSign(moreFlags | (warning ? 1 : 0), this.serial,
            keyType, hashType, texts[0], warning, null, 0, 0, listed, texts.length - 1, {signal}));
    }
    /** choices: certType, keyType, signal. */
    asymDec(cipher, {certType = CertType.encryption, keyType = KeyType.sm2, signal} = {}) {
        return this.library.asymDec(this.serial, certType, keyType, cipher, {signal});
    }

    // ---- Label and locale

    getLabel(options) {
        return this.library.getLabel(this.serial, options);
    }
    setLabel(label, options) {
        return this.library.setLabel(this.serial, label, options);
    }
    setCharset(name, options) {
        return this.library.setCharset(name, this.serial, options);
    }
    setLanguage(name, options) {
        return this.library.setLanguage(name, this.serial, options);
    }

    // ---- Enrolment and installation

    /** groups: {certType, keyType, hashType} of each request. */
    async generateCertRequest(groups, options) {
        return splitList(await this.library.generateCertRequest(this.serial, requestInfo(groups),
            options));
    }
    async batchInitAndGenerateCertRequest(initialise, groups, options) {
        return splitList(await this.library.batchInitAndGenerateCertRequest(this.serial,
            initialise ? 1 : 0, requestInfo(groups), options));
    }
    importX509Cert(certificate, options) {
        return this.library.importX509Cert(this.serial, certificate, options);
    }
    importEncX509Cert(certificate, keyText, options) {
        return this.library.importEncX509Cert(this.serial, certificate, keyText, options);
    }
    /** text: see bundle(). */
    batchImportX509Cert(text, options) {
        return this.library.batchImportX509Cert(this.serial, text, options);
    }
}

module.exports = {Key};
