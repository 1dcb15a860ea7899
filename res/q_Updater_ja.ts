<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="ja_JP" sourcelanguage="en">
<context>
    <name>QObject</name>
    <message>
        <source>KX_BUG01 </source>
        <translation> アップデートパッケージの格納されているフォルダの指定
(-upDir オプションの指定)がありません。</translation>
    </message>
    <message>
        <source>ER_MSG01</source>
        <translation>この機器にソフトウェアをインストールします。
よろしいですか？</translation>
    </message>
    <message>
        <source>ER_MSG02</source>
        <translation>USBメモリ内に複数のアップデートファイルが
見つかったため、
インストールを開始できませんでした。</translation>
    </message>
    <message>
        <source>ER_MSG03</source>
        <translation>USBメモリの中にインストールする
ソフトウェアがありません。</translation>
    </message>
    <message>
        <source>ER_MSG04</source>
        <translation>USBメモリの中のインストールファイルの
読み込みに失敗しました。
ファイルが壊れている可能性があります。</translation>
    </message>
    <message>
        <source>ER_MSG05</source>
        <translation>USBメモリを正しく認識できません。</translation>
    </message>
    <message>
        <source>ER_MSG10_INSTALL_START</source>
        <translation> インストールを開始します。
途中で電源を切らないでください。
途中で切るとファイルが壊れる事があります。</translation>
    </message>
    <message>
        <source>ER_MSG90</source>
        <translation>インストールは正常に完了しました。</translation>
    </message>
    <message>
        <source>ER_MSG91</source>
        <translation>インストールに失敗しました。</translation>
    </message>
    <message>
        <source>ER_MSG92_REBOOTING</source>
        <translation>再起動....</translation>
    </message>
    <message>
        <source>ER_MSG99</source>
        <translation>USBメモリを抜いてください。
再起動します</translation>
    </message>
</context>
</TS>
